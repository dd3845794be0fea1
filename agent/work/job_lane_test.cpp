#include "agent/work/job_lane.h"

#include <gtest/gtest.h>

#include <atomic>
#include <latch>
#include <stdexcept>
#include <thread>
#include <vector>

#include "tests/support/log_capture.h"

namespace agent::work {
namespace {

/// A job that says that it runs and then waits to be let go.
class held_job_t {
  public:
    job_lane_t::job_t Get() {
        return [this] {
            running_.count_down();
            go_.wait();
        };
    }
    void WaitUntilItRuns() { running_.wait(); }
    void LetGo() { go_.count_down(); }

  private:
    std::latch running_{1};
    std::latch go_{1};
};

TEST(JobLane, JobsRunInTheirOrderOnOneOtherThread) {
    std::vector<int> order;
    std::vector<std::thread::id> threads;
    job_lane_t lane;
    for (int i = 0; i < 20; ++i) {
        lane.Post([&order, &threads, i] {
            order.push_back(i);
            threads.push_back(std::this_thread::get_id());
        });
    }
    lane.Drain();
    ASSERT_EQ(order.size(), 20U);
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(order[static_cast<std::size_t>(i)], i);
        EXPECT_EQ(threads[static_cast<std::size_t>(i)], threads.front());
    }
    EXPECT_NE(threads.front(), std::this_thread::get_id());
}

TEST(JobLane, OneJobWaitsBehindTheRunningOneAndTheNextPostWaits) {
    held_job_t first;
    held_job_t second;
    std::atomic<bool> posted = false;
    job_lane_t lane;
    lane.Post(first.Get());
    first.WaitUntilItRuns();
    lane.Post(second.Get());  // does not wait: nothing waits behind the first
    std::thread poster([&] {
        lane.Post([] {});
        posted = true;
    });
    EXPECT_FALSE(posted) << "the second job is still waiting";
    first.LetGo();
    second.WaitUntilItRuns();
    poster.join();
    EXPECT_TRUE(posted) << "while the second one runs";
    second.LetGo();
}

TEST(JobLane, DrainWaitsForEveryJobAndWhatItHolds) {
    held_job_t held;
    std::weak_ptr<int> kept;
    job_lane_t lane;
    {
        auto content = std::make_shared<int>(1);
        kept = content;
        lane.Post(held.Get());
        lane.Post([content = std::move(content)] {});
    }
    EXPECT_FALSE(kept.expired());
    held.LetGo();
    lane.Drain();
    EXPECT_TRUE(kept.expired());
}

TEST(JobLane, DrainOfAnIdleOrUnusedLaneReturnsAtOnce) {
    job_lane_t lane;
    lane.Drain();
    lane.Post([] {});
    lane.Drain();
    lane.Drain();
}

TEST(JobLane, DestructionRunsWhatWasPosted) {
    held_job_t held;
    bool ran = false;
    {
        job_lane_t lane;
        lane.Post(held.Get());
        lane.Post([&] { ran = true; });
        held.LetGo();
    }
    EXPECT_TRUE(ran);
}

TEST(JobLane, ScopeIsOpenedOnItsThreadBeforeTheFirstJobAndClosedAtTheEnd) {
    std::thread::id opened;
    std::thread::id worker;
    bool closed = false;
    {
        job_lane_t lane([&]() -> std::shared_ptr<void> {
            opened = std::this_thread::get_id();
            return {&closed, [](bool* flag) { *flag = true; }};
        });
        lane.Post([&] { worker = std::this_thread::get_id(); });
        lane.Drain();
        EXPECT_EQ(opened, worker);
        EXPECT_FALSE(closed);
    }
    EXPECT_TRUE(closed);
}

TEST(JobLane, JobThatThrowsIsLoggedAndTheNextRuns) {
    const tests::log_capture_t log;
    bool ran = false;
    job_lane_t lane;
    lane.Post([] { throw std::runtime_error("no room"); });
    lane.Post([&] { ran = true; });
    lane.Drain();
    EXPECT_TRUE(ran);
    const std::vector<tests::log_line_t> lines = log.Lines();
    ASSERT_EQ(lines.size(), 1U) << log.Dump();
    EXPECT_EQ(lines[0].text, "A job failed.");
    EXPECT_EQ(lines[0].error, "no room");
}

}  // namespace
}  // namespace agent::work
