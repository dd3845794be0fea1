// Creating a file in memory when memory runs out, at each of its allocations in turn. This program has its own operator
// new.
#include <cstdlib>
#include <new>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "mirrowen/exc/runtime_exc.h"
#include "tarn/memfs/memfs_file_wstream.h"
#include "tarn/memfs/memfs_mem_slots.h"
#include "tarn/memfs/memfs_operations.h"
#include "tests/support/caught.h"

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

using tarn::memfs::memfs_file_wstream_t;
using tarn::memfs::memfs_mem_slots_t;
using tarn::memfs::memfs_operations_t;
using tarn::memfs::memfs_path_t;
using testing::Contains;

// Long, so that every copy of it takes memory of its own.
const std::string kName = "a name that does not fit into the string object itself";

// Runs `action` with its n-th allocation failing, for n = 1, 2, ... until none fails; returns how many did.
template <class Action, class Check>
int FailEachAllocation(Action action, Check check) {
    for (int n = 1;; ++n) {
        g_failed = false;
        g_countdown = n;
        std::exception_ptr error;
        try {
            action();
        } catch (...) {
            error = std::current_exception();
        }
        g_countdown = 0;
        if (!g_failed) {
            EXPECT_FALSE(error) << "a failure without a reason";
            return n - 1;
        }
        if (error) {
            SCOPED_TRACE("allocation " + std::to_string(n));
            check(tests::Catch([&] { std::rethrow_exception(error); }));
        }
        memfs_mem_slots_t::Inst().Clear();  // would block if a failure had left the registry locked
    }
}

TEST(MemfsAllocationTest, AStreamThatCannotBeMadeSaysSo) {
    const memfs_path_t path("MemFs://" + kName);
    const int failures = FailEachAllocation([&] { memfs_file_wstream_t stream(path); },
                                            [&](const tests::caught_t& caught) {
                                                if (caught.Is<std::bad_alloc>()) {
                                                    return;  // the copy of the path, before there is a stream
                                                }
                                                EXPECT_TRUE(caught.Is<exc::CRuntimeExc>());
                                                EXPECT_EQ(caught.message,
                                                          "MemFS: Unable to initialize write stream. File path: "
                                                          "[MemFs://" +
                                                              kName + "].");
                                                EXPECT_THAT(caught.causes, Contains("std::bad_alloc"));
                                            });
    EXPECT_GE(failures, 4);
}

TEST(MemfsAllocationTest, CreatingAFileAlwaysFailsUnderItsOwnText) {
    memfs_operations_t memfs;
    const std::string path = "MemFs://" + kName;
    const int failures = FailEachAllocation(
        [&] { memfs.CreateNewFile(path, 10, true); },
        [&](const tests::caught_t& caught) {
            EXPECT_TRUE(caught.Is<exc::CRuntimeExc>());
            EXPECT_EQ(caught.message, "MemFS: Cannot create new file: [" + path + "]. File size: [10].");
            EXPECT_THAT(caught.causes, Contains("std::bad_alloc"));
        });
    EXPECT_GE(failures, 6);
}

}  // namespace
