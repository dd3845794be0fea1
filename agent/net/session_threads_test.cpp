#include "agent/net/session_threads.h"

#include <gtest/gtest.h>

#include <atomic>
#include <latch>
#include <set>
#include <stdexcept>
#include <thread>

namespace agent::net {
namespace {

TEST(SessionThreads, PiecesOfWorkRunAtTheSameTime) {
    session_threads_t threads;
    std::latch all(3);
    std::vector<std::future<void>> results;
    for (int i = 0; i < 3; ++i) {
        results.push_back(threads.Run([&] { all.arrive_and_wait(); }));  // ends only when all three run
    }
    for (auto& result : results) {
        result.get();
    }
}

TEST(SessionThreads, FailureOfTheWorkReachesWhoeverAsks) {
    session_threads_t threads;
    auto result = threads.Run([] { throw std::runtime_error("no"); });
    EXPECT_THROW(result.get(), std::runtime_error);
}

TEST(SessionThreads, ThreadsAreReusedFromItemToItem) {
    session_threads_t threads;
    std::set<std::thread::id> seen;
    for (int i = 0; i < 50; ++i) {
        threads.Run([&] { seen.insert(std::this_thread::get_id()); }).get();
    }
    EXPECT_EQ(seen.size(), 1u);
}

TEST(SessionThreads, ScopeIsOpenedOnEveryThreadAndClosedAtItsEnd) {
    std::atomic<int> opened{0};
    std::atomic<int> closed{0};
    {
        session_threads_t threads([&]() -> std::shared_ptr<void> {
            ++opened;
            return std::shared_ptr<int>(new int, [&](int* scope) {
                ++closed;
                delete scope;
            });
        });
        threads.Run([&] { EXPECT_GE(opened.load(), 1); }).get();
    }
    EXPECT_GE(opened.load(), 1);
    EXPECT_EQ(closed.load(), opened.load());
}

TEST(SessionThreads, DestructionWaitsForWorkThatWasBegun) {
    std::atomic<bool> done{false};
    std::future<void> result;
    {
        session_threads_t threads;
        std::latch begun(1);
        result = threads.Run([&] {
            begun.count_down();
            std::this_thread::yield();
            done = true;
        });
        begun.wait();
    }
    EXPECT_TRUE(done);
    result.get();
}

}  // namespace
}  // namespace agent::net
