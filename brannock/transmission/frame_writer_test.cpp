#include "brannock/transmission/frame_writer.h"

#include <gtest/gtest.h>

#include "tests/support/fake_clock.h"
#include "tests/support/scripted_dev.h"
#include "tests/support/transfer_kit.h"

namespace brannock::transmission {
namespace {

class FrameWriterTest : public testing::Test {
  protected:
    std::string Sent(frame_writer_t::EThen then = frame_writer_t::EThen::eFlush) {
        return tests::transfer_kit_t::TextOf([&] { writer.Send({.type = EFrameType::eCredit}, {}, then); });
    }

    tests::fake_clock_t clock;
    tests::scripted_dev_t device;
    io_meter_t meter{std::chrono::seconds(120), 0};
    frame_writer_t writer{device, meter, 0};
};

TEST_F(FrameWriterTest, FailureOfASignOfLifeIsToldToTheNextSender) {
    device.failure = "The wire is cut.";
    clock.Advance(transfer_watch_t::kBusyInterval);
    writer.Beat();
    EXPECT_TRUE(writer.IsBroken());
    device.failure.clear();
    EXPECT_EQ("The wire is cut.", Sent());
    EXPECT_EQ("The wire is cut.", Sent());
    EXPECT_EQ("", device.output);
}

TEST_F(FrameWriterTest, SignOfLifeIsSentOnlyAfterSilence) {
    clock.Advance(transfer_watch_t::kBusyInterval - std::chrono::milliseconds(1));
    writer.Beat();
    EXPECT_EQ("", device.output);
    clock.Advance(std::chrono::milliseconds(1));
    writer.Beat();
    writer.Beat();
    EXPECT_EQ(kFrameHeaderSize, device.output.size());
    EXPECT_EQ(1, device.flushes);
}

TEST_F(FrameWriterTest, NothingFollowsTheLastFrame) {
    EXPECT_EQ("", Sent(frame_writer_t::EThen::eClose));
    EXPECT_EQ("The channel of the transfer is closed.", Sent());
    clock.Advance(transfer_watch_t::kBusyInterval);
    writer.Beat();
    writer.TrySendLast(EFrameType::eAbort, {});
    EXPECT_EQ(kFrameHeaderSize, device.output.size());
    EXPECT_FALSE(writer.IsBroken());
}

}  // namespace
}  // namespace brannock::transmission
