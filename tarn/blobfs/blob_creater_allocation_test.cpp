// A blob in the making when memory runs out, at each allocation in turn.
#include <new>
#include <string>

#include <gtest/gtest.h>

#include "tarn/blobfs/blob_creater.h"
#include "tests/support/blob_stream.h"
#include "tests/support/recording_blob_connection.h"
#include "tests/support/watched_allocations.h"

namespace {

using namespace std::string_literals;
using tests::blob_stream_t;

// Long, so that every copy of them takes memory of its own.
const std::string kFirst = "a path that does not fit into the string object itself";
const std::string kSecond = "another path that is so long that it does not fit either";

enum class EOutcome { eNothingFailed, eGotOver, eThrown };

// Runs `action` with its n-th allocation failing.
template <class Action>
EOutcome FailAt(int n, Action action) {
    const tests::failing_allocation_t failing(n);
    try {
        action();
    } catch (const std::bad_alloc&) {
        return EOutcome::eThrown;
    }
    return failing.HasFailed() ? EOutcome::eGotOver : EOutcome::eNothingFailed;
}

TEST(BlobCreaterAllocation, CommandThatFoundNoMemoryLeavesItsPathToTheNext) {
    int failures = 0;
    EOutcome outcome = EOutcome::eThrown;
    for (int n = 1; outcome != EOutcome::eNothingFailed; ++n) {
        const auto connection = std::make_shared<tests::recording_blob_connection_t>();
        tarn::blobfs::BlobCreater creater(connection);
        creater.CreateFile(kFirst, true);
        outcome = FailAt(n, [&] { creater.CreateFile(kSecond, true); });
        const bool thrown = outcome == EOutcome::eThrown;
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
    EOutcome outcome = EOutcome::eThrown;
    for (int n = 1; outcome != EOutcome::eNothingFailed; ++n) {
        const auto connection = std::make_shared<tests::recording_blob_connection_t>();
        tarn::blobfs::BlobCreater creater(connection);
        creater.CreateFile(kFirst, true);
        outcome = FailAt(n, [&] { creater.Finish(); });
        failures += outcome == EOutcome::eThrown ? 1 : 0;
        const std::size_t before = connection->payloads.size();
        creater.CreateDir(kFirst, false);
        creater.Finish();
        ASSERT_EQ(connection->payloads.size(), before + 1);
        EXPECT_EQ(connection->payloads.back(), blob_stream_t().CreateDir(kFirst, false).Bytes()) << n;
    }
    EXPECT_GE(failures, 3);
}

}  // namespace
