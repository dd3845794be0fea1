#include <gtest/gtest.h>

#include "brannock/transmission/frame.h"
#include "brannock/transmission/frame_payload.h"
#include "mirrowen/io/mem_dev.h"
#include "mirrowen/pool/byte_budget.h"
#include "tests/support/fake_clock.h"
#include "tests/support/transfer_kit.h"

// Windows, signs of life and time limits.
namespace brannock::transmission {
namespace {

using tests::block_source_dev_t;
using tests::collecting_dev_t;
using tests::Noise;
using tests::SourceOf;
using tests::transfer_kit_t;

class TransmitFlowTest : public testing::Test {
  protected:
    frame_header_t ReadFrame(io::io_dev_t& device) {
        frame_bytes_t bytes{};
        ReadAll(device, bytes.data(), bytes.size());
        const frame_header_t header = DecodeFrameHeader(bytes);
        std::vector<std::byte> payload(header.payloadLength);
        ReadAll(device, payload.data(), payload.size());
        return header;
    }
    void WriteFrame(io::io_dev_t& device, const frame_header_t& header, const payload_t& payload = {}) {
        const frame_bytes_t bytes = EncodeFrameHeader(header, payload);
        device.Write(bytes.data(), bytes.size());
        device.Write(payload.data(), payload.size());
    }
    // A block of 10 zero bytes to the receiver.
    void WriteZeroes(std::uint64_t block) {
        WriteFrame(*kit.left, {.type = EFrameType::eZero, .rawLength = 10, .offset = block * 10, .block = block});
    }
    static void ReadAll(io::io_dev_t& device, std::byte* out, std::size_t count) {
        while (count != 0) {
            const std::size_t part = device.Read(out, count);
            ASSERT_NE(0U, part);
            out += part;
            count -= part;
        }
    }
    std::future<std::string> SendInBackground(std::shared_ptr<io::area::area_read_dev_t> source) {
        return std::async(std::launch::async,
                          [this, source] { return transfer_kit_t::TextOf([&] { kit.Send(source); }); });
    }
    std::future<std::string> ReceiveInBackground() {
        return std::async(std::launch::async, [this] { return transfer_kit_t::TextOf([&] { kit.Receive(target); }); });
    }
    static net::netmngr_cfg_t WindowOf(std::uint32_t window) {
        std::string bytes("TNC1\x08\0\0\0\x01\0\0\0\0\0\0\0", 16);
        bytes[12] = static_cast<char>(window);
        io::binary_stream_tt stream(std::make_shared<io::mem_dev_tt<std::vector<char>>>(
            std::make_shared<std::vector<char>>(bytes.begin(), bytes.end())));
        return net::netmngr_cfg_t::Unserial(stream);
    }
    // Lets the time run until `transfer` has ended, `step` between two looks of its watch; false when it never does.
    bool RunClock(tests::fake_clock_t& clock, std::chrono::milliseconds step, const std::future<std::string>& transfer,
                  const std::function<void()>& between = {}) {
        const auto end = std::chrono::steady_clock::now() + tests::kPatience;
        while (std::chrono::steady_clock::now() < end) {
            if (transfer.wait_for(util::kWaitSlice) == std::future_status::ready) {
                return true;
            }
            clock.Advance(step);
            if (between) {
                between();
            }
        }
        return false;
    }
    // 150 s in which `end` says nothing but what keeps the other one waiting. What it says is heard before the time
    // goes on, and a reader takes a sign only when it has noted the one before: it is never more than 100 s behind.
    static void Pause(tests::fake_clock_t& clock, const tests::session_dev_t& end, const tests::session_dev_t& other) {
        for (int i = 0; i < 3 && !testing::Test::HasFailure(); ++i) {
            const std::size_t before = end.GetWritten().size();
            clock.Advance(std::chrono::seconds(50));
            EXPECT_TRUE(end.WaitForMoreThan(before + kFrameHeaderSize - 1));
            EXPECT_TRUE(other.WaitForRead(before + kFrameHeaderSize));
        }
    }

    transfer_kit_t kit{std::size_t{1} << 20};
    std::shared_ptr<collecting_dev_t> target = std::make_shared<collecting_dev_t>();
};

TEST_F(TransmitFlowTest, SenderStopsAtTheWindowAndGoesOnWithCredit) {
    auto sender = SendInBackground(SourceOf(Noise(std::size_t{4096} * 20)));
    for (std::uint64_t block = 0; block < 8; ++block) {
        EXPECT_EQ(block, ReadFrame(*kit.right).block);
    }
    EXPECT_EQ(std::future_status::timeout, sender.wait_for(util::kWaitSlice * 3));
    EXPECT_EQ(std::size_t{8} * (4096 + kFrameHeaderSize), kit.left->GetWritten().size());
    WriteFrame(*kit.right, {.type = EFrameType::eCredit, .block = 9});
    EXPECT_EQ(8U, ReadFrame(*kit.right).block);
    EXPECT_EQ(std::future_status::timeout, sender.wait_for(util::kWaitSlice * 3));
    EXPECT_EQ(std::size_t{9} * (4096 + kFrameHeaderSize), kit.left->GetWritten().size());
    WriteFrame(*kit.right, {.type = EFrameType::eStatus}, EncodeStatus({EItemResult::eFailed, "Enough.", {}}));
    EXPECT_EQ(EFrameType::eAbort, ReadFrame(*kit.right).type);
    EXPECT_EQ("Enough.", sender.get());
}

TEST_F(TransmitFlowTest, WindowMovesWhateverItsSize) {
    for (const std::uint32_t window : {1U, 2U, 9U, 64U}) {
        target = std::make_shared<collecting_dev_t>();
        kit.cfg.SetNetMngrCfg(WindowOf(window));
        const std::string text = Noise(std::size_t{4096} * 150, window);
        kit.Run(SourceOf(text), target);
        EXPECT_EQ("", kit.sent + kit.received) << window;
        EXPECT_EQ(text, target->bytes) << window;
    }
}

TEST_F(TransmitFlowTest, LargestWindowIsUsedWholeAndNoFurther) {
    kit.cfg.SetNetMngrCfg(WindowOf(64));
    auto sender = SendInBackground(SourceOf(Noise(std::size_t{4096} * 80)));
    for (std::uint64_t block = 0; block < 64; ++block) {
        EXPECT_EQ(block, ReadFrame(*kit.right).block);
    }
    EXPECT_EQ(std::future_status::timeout, sender.wait_for(util::kWaitSlice * 3));
    EXPECT_EQ(std::size_t{64} * (4096 + kFrameHeaderSize), kit.left->GetWritten().size());
    WriteFrame(*kit.right, {.type = EFrameType::eStatus}, EncodeStatus({EItemResult::eFailed, "Enough.", {}}));
    EXPECT_EQ("Enough.", sender.get());
}

TEST_F(TransmitFlowTest, CreditAboveWhatWasSentIsRefused) {
    auto sender = SendInBackground(SourceOf(Noise(std::size_t{4096} * 20)));
    for (std::uint64_t block = 0; block < 8; ++block) {
        ReadFrame(*kit.right);
    }
    WriteFrame(*kit.right, {.type = EFrameType::eCredit, .block = 17});
    EXPECT_EQ("Broken block stream: a credit up to block [17] came at block [8].", sender.get());
}

TEST_F(TransmitFlowTest, EveryWrittenBlockIsCredited) {
    auto receiver = ReceiveInBackground();
    bool credited = true;
    for (std::uint64_t block = 0; block < 5 && credited; ++block) {
        WriteZeroes(block);
        credited = kit.right->WaitForMoreThan((block + 1) * kFrameHeaderSize - 1);
    }
    WriteFrame(*kit.left, {.type = EFrameType::eAbort}, EncodeText("Enough."));
    EXPECT_EQ("Enough.", receiver.get());
    ASSERT_TRUE(credited);
    for (std::uint64_t block = 0; block < 5; ++block) {
        const frame_header_t credit = ReadFrame(*kit.left);
        EXPECT_EQ(EFrameType::eCredit, credit.type);
        EXPECT_EQ(block + 9, credit.block);
    }
    EXPECT_EQ(EFrameType::eStatus, ReadFrame(*kit.left).type);
}

// The window alone holds a source back whose blocks nobody writes.
TEST_F(TransmitFlowTest, StandingWriterStopsTheSource) {
    constexpr std::size_t kInFlight = 9;  // one is written, so 8 may follow
    std::promise<void> gate;
    target->onBlock = [opened = gate.get_future().share()](const auto& block) {
        if (block.GetIdentity().id == 1) {
            opened.wait();
        }
    };
    std::atomic<std::uint64_t> read = 0;
    const auto source = std::make_shared<block_source_dev_t>(100, 4096, [&](std::uint64_t index) {
        ++read;
        return Noise(4096, index);
    });
    auto receiver = ReceiveInBackground();
    auto sender = SendInBackground(source);
    EXPECT_TRUE(kit.left->WaitForMoreThan(kInFlight * (4096 + kFrameHeaderSize) - 1));
    EXPECT_EQ(std::future_status::timeout, sender.wait_for(util::kWaitSlice * 3));
    EXPECT_EQ(kInFlight * (4096 + kFrameHeaderSize), kit.left->GetWritten().size());
    EXPECT_LE(read, kInFlight + 4);  // two wait in the queue, one on either side of it
    EXPECT_LE(pool::byte_budget_t::Process().InUse(), (kInFlight + 4) * 4096);
    gate.set_value();
    EXPECT_EQ("", sender.get() + receiver.get());
    EXPECT_EQ(100U, target->blocks);
}

// A device that belongs to no session gets threads of its own.
TEST_F(TransmitFlowTest, PlainDeviceCarriesItemsToo) {
    const auto net = net::netmngr_cfg_t();
    const std::shared_ptr<io::io_dev_t> left = kit.wire.Left();
    const std::shared_ptr<io::io_dev_t> right = kit.wire.Right();
    for (const std::size_t size : {0U, 5U, 4096U, 300000U}) {
        target = std::make_shared<collecting_dev_t>();
        const std::string text = Noise(size);
        auto far = std::async(std::launch::async, [&] {
            Transmit(std::make_shared<areas_recv_channel_t>("item", right, net, kTransportVersion), target, kit.cfg,
                     nullptr);
        });
        Transmit(SourceOf(text), areas_send_channel_t::Create(left, net, kTransportVersion), kit.cfg, nullptr);
        far.get();
        EXPECT_EQ(text, target->bytes);
        EXPECT_EQ(1, target->finished);
    }
}

TEST_F(TransmitFlowTest, BlockBeyondTheWindowIsRefused) {
    std::promise<void> gate;
    target->onBlock = [opened = gate.get_future().share()](const auto& block) {
        if (block.GetIdentity().id == 1) {
            opened.wait();
        }
    };
    auto receiver = ReceiveInBackground();
    for (std::uint64_t block = 0; block <= 9; ++block) {  // one is written, so 8 may follow
        WriteZeroes(block);
    }
    WriteFrame(*kit.left, {.type = EFrameType::eAbort});
    EXPECT_TRUE(kit.right->WaitForRead(11 * kFrameHeaderSize));  // all judged, none but the first written
    gate.set_value();
    EXPECT_EQ("Broken block stream: block [9] is beyond the window.", receiver.get());
}

TEST_F(TransmitFlowTest, SilentReceiverIsGivenUp) {
    tests::fake_clock_t clock;
    auto sender = SendInBackground(SourceOf("abc"));
    EXPECT_TRUE(RunClock(clock, std::chrono::seconds(10), sender));
    EXPECT_EQ("The far end of the transfer has been silent for [120000] ms.", sender.get());
}

TEST_F(TransmitFlowTest, SilentSenderIsGivenUp) {
    tests::fake_clock_t clock;
    auto receiver = ReceiveInBackground();
    EXPECT_TRUE(RunClock(clock, std::chrono::seconds(10), receiver));
    EXPECT_EQ("The far end of the transfer has been silent for [120000] ms.", receiver.get());
}

TEST_F(TransmitFlowTest, LongFlushIsCoveredBySignsOfLife) {
    tests::fake_clock_t clock;
    target->onFinish = [&](auto&) { Pause(clock, *kit.right, *kit.left); };
    kit.Run(SourceOf("abc"), target);
    EXPECT_EQ("", kit.sent);
    EXPECT_EQ("", kit.received);
}

TEST_F(TransmitFlowTest, PausedSourceIsCoveredBySignsOfLife) {
    tests::fake_clock_t clock;
    for (const std::uint64_t pausedAt : {0U, 20U}) {
        const auto source = std::make_shared<block_source_dev_t>(25, 4096, [&](std::uint64_t index) {
            if (index == pausedAt) {
                Pause(clock, *kit.left, *kit.right);
            }
            return Noise(4096, index);
        });
        kit.Run(source, target);
        EXPECT_EQ("", kit.sent);
        EXPECT_EQ("", kit.received);
    }
}

TEST_F(TransmitFlowTest, DripInsideAFrameIsGivenUp) {
    tests::fake_clock_t clock;
    kit.right->SetMinimumRate(1000);
    auto receiver = ReceiveInBackground();
    const frame_bytes_t bytes = EncodeFrameHeader({.type = EFrameType::eBusy}, {});
    // The second byte is taken when the first one has been noted.
    for (std::size_t at = 0; at < 4; ++at) {
        clock.Advance(std::chrono::seconds(at < 2 ? 0 : 50));
        kit.left->Write(bytes.data() + at, 1);
        EXPECT_TRUE(kit.right->WaitForRead(at + 1));
    }
    clock.Advance(std::chrono::seconds(50));
    EXPECT_EQ("The far end of the transfer is slower than [1000] bytes a second.", receiver.get());
}

TEST_F(TransmitFlowTest, EndlessTalkAfterAFailureIsEnded) {
    tests::fake_clock_t clock;
    target->onBlock = [](const auto&) { throw exc::CRuntimeExc("No space."); };
    auto receiver = ReceiveInBackground();
    WriteFrame(*kit.left, {.type = EFrameType::eZero, .rawLength = 10});
    EXPECT_TRUE(kit.right->WaitForMoreThan(0));  // it has told its failure
    EXPECT_TRUE(RunClock(clock, std::chrono::seconds(10), receiver,
                         [&] { transfer_kit_t::TextOf([&] { WriteFrame(*kit.left, {.type = EFrameType::eBusy}); }); }));
    EXPECT_EQ("No space.", receiver.get());
}

// 256 MiB through a process that may hold 8 blocks.
TEST_F(TransmitFlowTest, MemoryDoesNotGrowWithTheItem) {
    constexpr std::uint64_t kBlock = std::uint64_t{1} << 20;
    auto& budget = pool::byte_budget_t::Process();
    budget.SetLimit(8 * kBlock);
    kit.cfg = transfer_kit_t::cfg_t(kBlock, 1);
    std::uint64_t most = 0;
    target->keep = false;
    target->onBlock = [&](const auto&) { most = std::max(most, budget.InUse()); };
    const std::string block = Noise(kBlock);
    kit.Run(std::make_shared<block_source_dev_t>(256, kBlock, [&](std::uint64_t) { return block; }), target);
    budget.SetLimit(pool::kDefaultProcessBudget);
    EXPECT_EQ("", kit.sent + kit.received);
    EXPECT_EQ(256U, target->blocks);
    EXPECT_LE(most, 10 * kBlock);  // the first of either end is granted over the limit
    EXPECT_EQ(0U, budget.InUse());
}

TEST_F(TransmitFlowTest, BudgetOfOneBlockIsEnoughForBothEnds) {
    auto& budget = pool::byte_budget_t::Process();
    budget.SetLimit(4096);
    const std::string text = Noise(std::size_t{4096} * 40);
    kit.Run(SourceOf(text), target);
    budget.SetLimit(pool::kDefaultProcessBudget);
    EXPECT_EQ("", kit.sent + kit.received);
    EXPECT_EQ(text, target->bytes);
}

// A packed block that cannot be unpacked comes alone, as the pipeline starts, or inside it.
class UnpackFailureTest : public TransmitFlowTest,
                          public testing::WithParamInterface<std::tuple<io::block::EBufTransformType, std::uint64_t>> {
  protected:
    // The receiver has sent STATUS; false when nothing comes any more.
    bool WaitForStatus() const {
        const std::string status("TBLK\x07", 5);
        std::string written = kit.right->GetWritten();
        while (written.find(status) == std::string::npos && kit.right->WaitForMoreThan(written.size())) {
            written = kit.right->GetWritten();
        }
        return written.find(status) != std::string::npos;
    }
};

TEST_P(UnpackFailureTest, FailsTheItemAtOnce) {
    const auto [type, bad] = GetParam();
    auto receiver = ReceiveInBackground();
    for (std::uint64_t block = 0; block < bad; ++block) {
        WriteZeroes(block);
    }
    WriteFrame(*kit.left,
               {.type = EFrameType::eData, .rawLength = 4000, .offset = bad * 10, .block = bad, .transform = type},
               payload_t(20, std::byte{0xEE}));
    EXPECT_TRUE(WaitForStatus());
    WriteFrame(*kit.left, {.type = EFrameType::eAbort}, EncodeText("Late."));
    const std::string name(io::block::str_from_buftransformtype(type));
    EXPECT_EQ("Packed block cannot be unpacked ([" + name + "], [20] bytes).", receiver.get());
    EXPECT_LE(target->blocks, bad);
    EXPECT_EQ(0, target->finished);
    EXPECT_EQ(0, kit.right->GetRunning());
}

INSTANTIATE_TEST_SUITE_P(AtBlock, UnpackFailureTest,
                         testing::Combine(testing::Values(io::block::EBufTransformType::eLz4,
                                                          io::block::EBufTransformType::eZstd),
                                          testing::Values(0, 1, 6)));

}  // namespace
}  // namespace brannock::transmission
