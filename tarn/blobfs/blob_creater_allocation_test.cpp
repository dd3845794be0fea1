// A blob in the making when memory runs out, at each allocation in turn. This program has its own operator new.
#include <cstdlib>
#include <new>
#include <string>

#include <gtest/gtest.h>

#include "tarn/blobfs/blob_creater.h"
#include "tests/support/blob_stream.h"
#include "tests/support/recording_blob_connection.h"

namespace {

thread_local int g_countdown = 0;  ///< the allocation that fails, counted from 1; 0 for none
thread_local bool g_failed = false;

}  // namespace

// Not inlined: the compiler would take malloc and free for a mismatched pair.
[[gnu::noinline]] void* operator new(std::size_t size) {
    if (g_countdown != 0 && --g_countdown == 0) {
        g_failed = true;
        throw std::bad_alloc();
    }
    if (void* const memory = std::malloc(size != 0 ? size : 1)) {
        return memory;
    }
    throw std::bad_alloc();
}

[[gnu::noinline]] void operator delete(void* memory) noexcept {
    std::free(memory);
}

[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

namespace {

using namespace std::string_literals;
using tests::blob_stream_t;

// Long, so that every copy of them takes memory of its own.
const std::string kFirst = "a path that does not fit into the string object itself";
const std::string kSecond = "another path that is so long that it does not fit either";

// Runs `action` with its n-th allocation failing; whether it threw.
template <class Action>
bool FailsAt(int n, Action action) {
    bool thrown = false;
    g_failed = false;
    g_countdown = n;
    try {
        action();
    } catch (const std::bad_alloc&) {
        thrown = true;
    }
    g_countdown = 0;
    return thrown;
}

TEST(BlobCreaterAllocation, CommandThatFoundNoMemoryLeavesItsPathToTheNext) {
    int failures = 0;
    for (int n = 1; n == 1 || g_failed; ++n) {
        const auto connection = std::make_shared<tests::recording_blob_connection_t>();
        tarn::blobfs::BlobCreater creater(connection);
        creater.CreateFile(kFirst, true);
        const bool thrown = FailsAt(n, [&] { creater.CreateFile(kSecond, true); });
        failures += thrown ? 1 : 0;
        creater.CreateDir(kSecond, false);
        creater.Finish();
        const std::string first = blob_stream_t().CreateFile(kFirst, true).Bytes();
        const std::string created = blob_stream_t().CreateFile(kSecond, true).CreateDir("", false).Bytes();
        ASSERT_EQ(connection->payloads.size(), 1U);
        EXPECT_EQ(connection->payloads[0],
                  first + (thrown ? blob_stream_t().CreateDir(kSecond, false).Bytes() : created))
            << n;
    }
    EXPECT_GE(failures, 2);
}

TEST(BlobCreaterAllocation, BlobThatFoundNoMemoryIsGoneAndTheNextIsWhole) {
    int failures = 0;
    for (int n = 1; n == 1 || g_failed; ++n) {
        const auto connection = std::make_shared<tests::recording_blob_connection_t>();
        tarn::blobfs::BlobCreater creater(connection);
        creater.CreateFile(kFirst, true);
        const bool thrown = FailsAt(n, [&] { creater.Finish(); });
        failures += thrown ? 1 : 0;
        const std::size_t before = connection->payloads.size();
        creater.CreateDir(kFirst, false);
        creater.Finish();
        ASSERT_EQ(connection->payloads.size(), before + 1);
        EXPECT_EQ(connection->payloads.back(), blob_stream_t().CreateDir(kFirst, false).Bytes()) << n;
    }
    EXPECT_GE(failures, 3);
}

}  // namespace
