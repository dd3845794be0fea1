// Creating a file in memory when memory runs out, at each of its allocations in turn.
#include <new>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "mirrowen/exc/runtime_exc.h"
#include "tarn/memfs/memfs_file_wstream.h"
#include "tarn/memfs/memfs_mem_slots.h"
#include "tarn/memfs/memfs_operations.h"
#include "tests/support/caught.h"
#include "tests/support/watched_allocations.h"

namespace {

using tarn::memfs::memfs_file_wstream_t;
using tarn::memfs::memfs_mem_slots_t;
using tarn::memfs::memfs_operations_t;
using tarn::memfs::memfs_path_t;
using testing::Contains;

// Long, so that every copy of it takes memory of its own.
const std::string kName = "a name that does not fit into the string object itself";

struct attempt_t {
    bool failed = false;  ///< the allocation
    std::exception_ptr error;
};

// Runs `action` with its n-th allocation failing.
template <class Action>
attempt_t FailAt(int n, Action action) {
    attempt_t attempt;
    const tests::failing_allocation_t failing(n);
    try {
        action();
    } catch (...) {
        attempt.error = std::current_exception();
    }
    attempt.failed = failing.HasFailed();
    return attempt;
}

// For n = 1, 2, ... until none fails; returns how many did.
template <class Action, class Check>
int FailEachAllocation(Action action, Check check) {
    for (int n = 1;; ++n) {
        const attempt_t attempt = FailAt(n, action);
        if (!attempt.failed) {
            EXPECT_FALSE(attempt.error) << "a failure without a reason";
            return n - 1;
        }
        if (attempt.error) {
            SCOPED_TRACE("allocation " + std::to_string(n));
            check(tests::Catch([&] { std::rethrow_exception(attempt.error); }));
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
