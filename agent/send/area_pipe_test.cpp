#include "agent/send/area_pipe.h"

#include <gtest/gtest.h>

#include <future>

#include "tests/support/blocks.h"
#include "tests/support/caught_error.h"
#include "tests/support/fake_clock.h"

namespace agent::send {
namespace {

using tests::CatchError;
using tests::ThrowsText;

std::shared_ptr<io::area::IArea> Data(std::uint64_t index, std::size_t size = 1) {
    return std::make_shared<io::area::CDataArea>(index, tests::DataBlock(index * size, std::string(size, 'x'), index));
}

std::shared_ptr<io::area::IArea> Hole(std::uint64_t index, std::uint64_t size) {
    return std::make_shared<io::area::CDataArea>(index,
                                                 io::block::CFibBlock::NewSparseBlock(index * size, index, size));
}

class AreaPipe : public testing::Test {
  protected:
    void Fill() {
        for (std::uint64_t index = 0; index < area_pipe_t::kMaxAreas; ++index) {
            pipe_.Push(Data(index));
        }
    }
    // A thread that pushes one area more than there is room for.
    std::future<tests::caught_error_t> PushOneTooMany() {
        Fill();
        return std::async(std::launch::async, [this] { return CatchError([this] { pipe_.Push(Data(99)); }); });
    }

    std::stop_source stop_;
    area_pipe_t pipe_{"the file", stop_.get_token()};
};

TEST_F(AreaPipe, AreasComeInOrderAndThenNothing) {
    const auto first = Data(0);
    const auto second = Hole(1, 1);
    pipe_.Push(first);
    pipe_.Push(second);
    pipe_.Close();
    EXPECT_EQ(pipe_.Pop(), first);
    EXPECT_EQ(pipe_.Pop(), second);
    EXPECT_EQ(pipe_.Pop(), nullptr);
    EXPECT_EQ(pipe_.Pop(), nullptr);
}

TEST_F(AreaPipe, ReaderWaitsForTheWriter) {
    auto read = std::async(std::launch::async, [this] { return pipe_.Pop(); });
    const auto area = Data(0);
    pipe_.Push(area);
    EXPECT_EQ(read.get(), area);
}

TEST_F(AreaPipe, WriterWaitsAtTheLimitAndGoesOnWhenOneIsTaken) {
    auto pushed = PushOneTooMany();
    EXPECT_EQ(pushed.wait_for(std::chrono::milliseconds(1)), std::future_status::timeout);
    EXPECT_NE(pipe_.Pop(), nullptr);
    EXPECT_FALSE(pushed.get().thrown);
}

TEST_F(AreaPipe, LargeBlocksFillItSoonerButOneAlwaysFits) {
    constexpr std::size_t kLarge = area_pipe_t::kMaxBytes + 1;
    pipe_.Push(Data(0, kLarge));
    auto pushed = std::async(std::launch::async, [this] { pipe_.Push(Data(1, kLarge)); });
    EXPECT_EQ(pushed.wait_for(std::chrono::milliseconds(1)), std::future_status::timeout);
    EXPECT_NE(pipe_.Pop(), nullptr);
    pushed.get();
}

TEST_F(AreaPipe, HolesCountAsAreasButNotAsBytes) {
    for (std::uint64_t index = 0; index < area_pipe_t::kMaxAreas; ++index) {
        pipe_.Push(Hole(index, std::uint64_t{1} << 40));
    }
    EXPECT_EQ(pipe_.Pop()->GetSize(), std::uint64_t{1} << 40);
}

TEST_F(AreaPipe, ReaderHearsWhyNothingMoreComesAndDoesNotGetTheRest) {
    pipe_.Push(Data(0));
    pipe_.Fail("The far end has gone.");
    for (int i = 0; i < 2; ++i) {
        EXPECT_THAT(CatchError([this] { pipe_.Pop(); }), ThrowsText("The far end has gone."));
    }
}

TEST_F(AreaPipe, FailureWakesAWaitingReader) {
    auto read = std::async(std::launch::async, [this] { return CatchError([this] { pipe_.Pop(); }); });
    pipe_.Fail("The far end has gone.");
    EXPECT_THAT(read.get(), ThrowsText("The far end has gone."));
}

TEST_F(AreaPipe, ReaderThatLeavesWakesAWaitingWriter) {
    auto pushed = PushOneTooMany();
    pipe_.Leave();
    EXPECT_THAT(pushed.get(), ThrowsText("Nobody reads [the file] any more."));
    EXPECT_THAT(CatchError([this] { pipe_.Push(Data(0)); }), ThrowsText("Nobody reads [the file] any more."));
}

TEST_F(AreaPipe, WhatIsHeldGoesWithTheReader) {
    auto area = Data(0);
    const std::weak_ptr<io::area::IArea> held = area;
    pipe_.Push(std::move(area));
    pipe_.Close();
    pipe_.Leave();
    EXPECT_TRUE(held.expired());
}

TEST_F(AreaPipe, StopRequestEndsAWaitingWriter) {
    auto pushed = PushOneTooMany();
    stop_.request_stop();
    EXPECT_THAT(pushed.get(), ThrowsText("Reading [the file] was cancelled."));
}

TEST_F(AreaPipe, ReaderThatTakesNothingIsNotBorneForEver) {
    tests::fake_clock_t clock;
    auto pushed = PushOneTooMany();
    // The writer begins to wait at some time of its own.
    std::chrono::minutes passed{0};
    while (pushed.wait_for(std::chrono::milliseconds(1)) == std::future_status::timeout) {
        clock.Advance(std::chrono::minutes(1));
        ++passed;
    }
    EXPECT_GE(passed, area_pipe_t::kPatience);
    EXPECT_THAT(pushed.get(), ThrowsText("Nobody has read of [the file] for 3600 s."));
}

}  // namespace
}  // namespace agent::send
