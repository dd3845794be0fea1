#include "agent/copy/group_lane.h"

#include <gtest/gtest.h>

#include <future>

#include "agent/copy/fake_sink.h"

namespace agent::copy {
namespace {

using texts_t = std::vector<std::string>;

class GroupLane : public ::testing::Test {
  protected:
    GroupLane() : lane_(std::in_place, options_, sink_, guid::guid_t::Create(), group_lane_t::EJobs::eBeside) {}

    static batch::batch_t Batch(std::size_t entries) {
        batch::batch_t batch;
        batch.items.resize(entries);
        return batch;
    }
    static std::vector<sent_item_t> Items(std::size_t count) { return std::vector<sent_item_t>(count); }

    texts_t Faults() {
        lane_->Drain();
        const std::optional<group_lane_t::done_t> done = lane_->TakeDone();
        return done ? done->faults : texts_t{"nothing done"};
    }

    // Puts a batch that stays under way until it is let go.
    void PutHeldBatch() {
        sink_.onBatch = [this] {
            begun_.set_value();
            go_.get_future().wait();
        };
        lane_->Put(Batch(1));
        begun_.get_future().wait();
    }
    void LetGo() { go_.set_value(); }

    std::promise<void> begun_;
    std::promise<void> go_;
    std::stop_source stop_;
    copy_options_t options_;
    fake_sink_t sink_;
    std::optional<group_lane_t> lane_;
};

TEST_F(GroupLane, BatchesAndCommitsReachTheSinkInTheirOrder) {
    lane_->Put(Batch(2));
    lane_->Put(Batch(1));
    lane_->Commit(Items(3));
    lane_->Put(Batch(4));
    lane_->Commit(Items(4));
    EXPECT_EQ(Faults(), (texts_t{"", "", ""}));
    EXPECT_EQ(Faults(), (texts_t{"", "", "", ""}));
    EXPECT_EQ(Faults(), texts_t{"nothing done"});
    EXPECT_EQ(sink_.calls, (texts_t{"batch of 2", "batch of 1", "commit 3", "batch of 4", "commit 4"}));
}

TEST_F(GroupLane, CallerGoesOnWhileABatchIsPut) {
    PutHeldBatch();
    lane_->Commit(Items(1));
    EXPECT_FALSE(lane_->TakeDone());
    LetGo();
    EXPECT_EQ(Faults(), texts_t{""});
}

TEST_F(GroupLane, BatchThatFailsIsPutOnceMore) {
    sink_.batchFaults = {"line cut"};
    lane_->Put(Batch(1));
    lane_->Commit(Items(1));
    EXPECT_EQ(Faults(), texts_t{""});
    EXPECT_EQ(sink_.calls, (texts_t{"batch of 1", "batch of 1", "commit 1"}));
}

TEST_F(GroupLane, BatchThatFailsAgainLosesItsGroupAndTheNextGroupGoesOn) {
    sink_.batchFaults = {"", "line cut", "no way"};
    lane_->Put(Batch(1));
    lane_->Put(Batch(2));
    lane_->Put(Batch(3));
    lane_->Commit(Items(6));
    lane_->Put(Batch(4));
    lane_->Commit(Items(4));
    EXPECT_EQ(Faults(), texts_t(6, "no way"));
    EXPECT_EQ(Faults(), texts_t(4));
    EXPECT_EQ(sink_.calls, (texts_t{"batch of 1", "batch of 2", "batch of 2", "batch of 4", "commit 4"}));
}

TEST_F(GroupLane, LostEntriesAndWarningsOfACommitAreTold) {
    sink_.lost = {{1, "gone"}, {7, "nonsense"}};
    sink_.commitWarnings = {"owner"};
    lane_->Commit(Items(2));
    lane_->Drain();
    const std::optional<group_lane_t::done_t> done = lane_->TakeDone();
    ASSERT_TRUE(done);
    EXPECT_EQ(done->faults, (texts_t{"", "gone"}));
    EXPECT_EQ(done->warnings.size(), 1u);
}

TEST_F(GroupLane, CommitThatFailsLosesAllEntriesAndIsNotTriedAgain) {
    sink_.commitFault = "no answer";
    lane_->Commit(Items(2));
    EXPECT_EQ(Faults(), texts_t(2, "no answer"));
    EXPECT_EQ(sink_.calls, texts_t{"commit 2"});
}

TEST_F(GroupLane, WhatHasNotBegunWhenTheLaneIsGivenUpIsNotDone) {
    PutHeldBatch();
    lane_->Put(Batch(2));
    lane_->GiveUp();
    LetGo();
    lane_.reset();
    EXPECT_EQ(sink_.calls, texts_t{"batch of 1"});
}

TEST_F(GroupLane, NothingIsPutOrCommittedAfterAStopRequest) {
    options_.remote.stop = stop_.get_token();
    sink_.batchFaults = {"The work was cancelled."};
    PutHeldBatch();
    lane_->Commit(Items(1));
    stop_.request_stop();
    LetGo();
    EXPECT_EQ(Faults(), texts_t{"The work was cancelled."});
    EXPECT_EQ(sink_.calls, texts_t{"batch of 1"});
}

TEST_F(GroupLane, JobsAtOnceRunOnTheCallersThread) {
    lane_.emplace(options_, sink_, guid::guid_t::Create(), group_lane_t::EJobs::eAtOnce);
    std::thread::id where;
    sink_.onBatch = [&] { where = std::this_thread::get_id(); };
    lane_->Put(Batch(1));
    EXPECT_EQ(where, std::this_thread::get_id());
    lane_->Commit(Items(1));
    EXPECT_TRUE(lane_->TakeDone());
}

}  // namespace
}  // namespace agent::copy
