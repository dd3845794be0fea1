#include "brannock/transmission/transmit.h"

#include <gtest/gtest.h>

#include "brannock/transmission/digest_registrator_channel.h"
#include "brannock/transmission/entry_reports.h"
#include "brannock/transmission/frame.h"
#include "brannock/transmission/frame_payload.h"
#include "mirrowen/exc/already_exists_exc.h"
#include "mirrowen/io/area/knows_holes.h"
#include "tests/support/transfer_kit.h"

namespace brannock::transmission {
namespace {

using tests::collecting_dev_t;
using tests::Noise;
using tests::SourceOf;
using tests::transfer_kit_t;

class TransmitTest : public testing::Test {
  protected:
    void ExpectGood(const std::string& text) {
        kit.Run(SourceOf(text), target);
        EXPECT_EQ("", kit.sent);
        EXPECT_EQ("", kit.received);
        EXPECT_EQ(text, target->bytes);
        EXPECT_EQ(1, target->finished);
        EXPECT_EQ(0, kit.left->GetRunning());
        EXPECT_EQ(0, kit.right->GetRunning());
        EXPECT_EQ(0U, pool::byte_budget_t::Process().InUse());
    }
    // Both ends have read exactly the item: the next bytes are the dialogue's.
    void ExpectAligned() {
        char byte = 0;
        kit.left->Write("L", 1);
        EXPECT_EQ(1U, kit.right->Read(&byte, 1));
        EXPECT_EQ('L', byte);
        kit.right->Write("R", 1);
        EXPECT_EQ(1U, kit.left->Read(&byte, 1));
        EXPECT_EQ('R', byte);
    }

    transfer_kit_t kit;
    std::shared_ptr<collecting_dev_t> target = std::make_shared<collecting_dev_t>();
};

TEST_F(TransmitTest, EmptyItemIsFinished) {
    ExpectGood("");
    ExpectAligned();
    EXPECT_EQ(0U, target->blocks);
}

TEST_F(TransmitTest, ItemOfOneBlockNeedsOnlyTheWatch) {
    ExpectGood(Noise(4096));
    ExpectAligned();
    EXPECT_EQ(1, kit.left->GetRuns());
    EXPECT_EQ(1, kit.right->GetRuns());
}

TEST_F(TransmitTest, BlockAndAByte) {
    ExpectGood(Noise(4097));
    ExpectAligned();
    EXPECT_EQ(2U, target->blocks);
}

TEST_F(TransmitTest, ManyBlocksArriveInOrder) {
    ExpectGood(Noise(std::size_t{4096} * 100 + 7));
    ExpectAligned();
    EXPECT_EQ(std::uint64_t{4096} * 100 + 7, kit.offset->GetOffset());
}

TEST_F(TransmitTest, SmallWireBlocksNobody) {
    transfer_kit_t small(100);
    kit.wire = small.wire;
    kit.left = small.left;
    kit.right = small.right;
    ExpectGood(Noise(std::size_t{4096} * 20));
    ExpectAligned();
}

TEST_F(TransmitTest, ItemsFollowOneAnother) {
    for (const std::size_t size : {0U, 5U, 20000U, 4096U, 12288U}) {
        target = std::make_shared<collecting_dev_t>();
        ExpectGood(Noise(size, size));
        ExpectAligned();
    }
}

TEST_F(TransmitTest, ZeroesTravelAsFramesWithoutBytes) {
    ExpectGood(Noise(4096) + std::string(4096 * 5, '\0') + Noise(10) + "");
    EXPECT_EQ(5U, target->sparse);
    EXPECT_LT(kit.left->GetWritten().size(), 3U * 4096);
}

std::shared_ptr<tests::block_source_dev_t> HoleOf(std::uint64_t size) {
    return std::make_shared<tests::block_source_dev_t>(1, size, [](std::uint64_t) { return std::string(); });
}

TEST_F(TransmitTest, SparseRunLongerThanABlockIsOneFrame) {
    kit.Run(HoleOf(10000), target);
    EXPECT_EQ("", kit.sent + kit.received);
    EXPECT_EQ(std::string(10000, '\0'), target->bytes);
    EXPECT_EQ(1U, target->sparse);
}

TEST_F(TransmitTest, LongestSparseRunsAreCutAt64MiB) {
    std::vector<std::uint64_t> sizes;
    target->keep = false;
    target->onBlock = [&](const auto& block) { sizes.push_back(block.GetIdentity().size); };
    kit.Run(HoleOf((std::uint64_t{128} << 20) + 1), target);
    EXPECT_EQ("", kit.sent + kit.received);
    EXPECT_EQ((std::vector<std::uint64_t>{64U << 20, 64U << 20, 1}), sizes);
    EXPECT_EQ((std::uint64_t{128} << 20) + 1, kit.offset->GetOffset());
    EXPECT_EQ(4 * kFrameHeaderSize + kEndPayloadSize, kit.left->GetWritten().size());
}

TEST_F(TransmitTest, SparseRunsAreCutIntoBlocksWhereDigestsAreRegistered) {
    const auto digests = std::make_shared<digest::digests_t>();
    kit.cfg.EnableDigestsCalc(digests);
    kit.Run(HoleOf(10000), target);
    EXPECT_EQ("", kit.sent + kit.received);
    EXPECT_EQ(3U, target->sparse);
    const std::vector<std::byte> zeroes(4096);
    const auto whole = digest::ComputeBlockDigest(zeroes);
    const auto last = digest::ComputeBlockDigest(std::span(zeroes).first(10000 - 8192));
    EXPECT_EQ((std::map<std::uint64_t, digest::block_digest_t>{{0, whole}, {1, whole}, {2, last}}), digests->GetAll());
}

// Knows its holes, or says that it does not.
class hole_source_t final : public tests::block_source_dev_t, public io::area::IKnowsHoles {
  public:
    hole_source_t(std::uint64_t count, bool knows, std::function<std::string(std::uint64_t)> block)
        : block_source_dev_t(count, 4096, std::move(block)), knows_(knows) {}
    bool KnowsHoles() const noexcept override { return knows_; }

  private:
    const bool knows_;
};

TEST_F(TransmitTest, ZeroBytesOfASourceThatKnowsItsHolesStayData) {
    std::vector<std::uint64_t> holes;
    target->onBlock = [&](const auto& block) {
        if (block.IsSparseBlock()) {
            holes.push_back(block.GetIdentity().id);
        }
    };
    const auto block = [](std::uint64_t index) { return index % 2 == 0 ? std::string(4096, '\0') : std::string(); };
    kit.Run(std::make_shared<hole_source_t>(6, true, block), target);
    EXPECT_EQ("", kit.sent + kit.received);
    EXPECT_EQ((std::vector<std::uint64_t>{1, 3, 5}), holes);
    EXPECT_EQ(std::string(std::size_t{4096} * 6, '\0'), target->bytes);
    EXPECT_GT(kit.left->GetWritten().size(), 3U * 4096);
}

TEST_F(TransmitTest, SourceMaySayThatItDoesNotKnowItsHoles) {
    kit.Run(std::make_shared<hole_source_t>(3, false, [](std::uint64_t) { return std::string(4096, '\0'); }), target);
    EXPECT_EQ("", kit.sent + kit.received);
    EXPECT_EQ(3U, target->sparse);
}

TEST_F(TransmitTest, HolesStayHolesInALocalCopy) {
    const auto block = [](std::uint64_t index) { return index % 2 == 0 ? std::string(4096, '\0') : std::string(); };
    Transmit(std::make_shared<hole_source_t>(7, true, block), target, kit.cfg, nullptr);
    EXPECT_EQ(std::string(std::size_t{4096} * 7, '\0'), target->bytes);
    EXPECT_EQ(3U, target->sparse);
}

class CompressedTransmitTest : public TransmitTest, public testing::WithParamInterface<io::block::EBufTransformType> {
  protected:
    void SetUp() override {
        auto history = std::make_shared<io::block::buf_transforms_history_t>();
        history->PushTransform(GetParam());
        kit.cfg.EnableCompression(history);
    }
};

TEST_P(CompressedTransmitTest, WhatShrinksTravelsPacked) {
    ExpectGood(std::string(std::size_t{4096} * 50, 'a'));
    EXPECT_LT(kit.left->GetWritten().size(), 50U * 200);
    ExpectAligned();
}

TEST_P(CompressedTransmitTest, ZeroBytesThatAreNoHoleShrink) {
    kit.Run(std::make_shared<hole_source_t>(50, true, [](std::uint64_t) { return std::string(4096, '\0'); }), target);
    EXPECT_EQ("", kit.sent + kit.received);
    EXPECT_EQ(0U, target->sparse);
    EXPECT_LT(kit.left->GetWritten().size(), 50U * 200);
}

TEST_P(CompressedTransmitTest, NoiseTravelsAsItIs) {
    const std::string text = Noise(std::size_t{4096} * 10);
    ExpectGood(text);
    EXPECT_NE(std::string::npos, kit.left->GetWritten().find(text.substr(4096, 4096)));
}

TEST_P(CompressedTransmitTest, OneBlockIsPackedToo) {
    ExpectGood(std::string(4096, 'a'));
    EXPECT_LT(kit.left->GetWritten().size(), 1000U);
}

INSTANTIATE_TEST_SUITE_P(Transforms, CompressedTransmitTest,
                         testing::Values(io::block::EBufTransformType::eLz4, io::block::EBufTransformType::eZstd));

TEST_F(TransmitTest, LocalCopyWritesAndFinishes) {
    const std::string text = Noise(50000);
    Transmit(SourceOf(text), target, kit.cfg, nullptr);
    EXPECT_EQ(text, target->bytes);
    EXPECT_EQ(1, target->finished);
}

TEST_F(TransmitTest, LocalCopyThrowsWhatEitherSideThrows) {
    const auto bad = std::make_shared<tests::block_source_dev_t>(9, 4096, [](std::uint64_t index) -> std::string {
        if (index == 5) {
            throw exc::CRuntimeExc("source");
        }
        return std::string(4096, 'x');
    });
    EXPECT_EQ("source", transfer_kit_t::TextOf([&] { Transmit(bad, target, kit.cfg, nullptr); }));
    EXPECT_EQ(0, target->finished);
    target->onBlock = [](const auto& block) {
        if (block.GetIdentity().id == 3) {
            throw exc::CAlreadyExistsExc("there");
        }
    };
    EXPECT_THROW(Transmit(SourceOf(Noise(40000)), target, kit.cfg, nullptr), exc::CAlreadyExistsExc);
    EXPECT_EQ(0, target->finished);
}

TEST_F(TransmitTest, DigestsAreRegisteredByConfigurationAndRegistrator) {
    const auto own = std::make_shared<digest::digests_t>();
    const auto hook = std::make_shared<digest::digests_t>();
    const std::string text = Noise(4096) + std::string(4096, '\0') + "tail";
    kit.cfg.EnableDigestsCalc(own);
    auto far = std::async(std::launch::async, [&] { kit.Receive(target); });
    Transmit(SourceOf(text),
             digest_registrator_channel_t::Create(areas_send_channel_t::Create(kit.left, {}, 1), hook, 4096), kit.cfg,
             nullptr);
    far.get();
    const auto digestOf = [&](std::size_t at) {
        return digest::ComputeBlockDigest(
            std::as_bytes(std::span(text).subspan(at).first(std::min<std::size_t>(4096, text.size() - at))));
    };
    const std::map<std::uint64_t, digest::block_digest_t> wanted{
        {0, digestOf(0)}, {1, digestOf(4096)}, {2, digestOf(8192)}};
    EXPECT_EQ(wanted, own->GetAll());
    EXPECT_EQ(wanted, hook->GetAll());
}

TEST_F(TransmitTest, RegistratorInFrontOfAWriterPassesEverythingOn) {
    const auto digests = std::make_shared<digest::digests_t>();
    const auto front = digest_registrator_channel_t::Create(target, digests, 4);
    EXPECT_EQ("collector", front->GetDisplayName());
    front->Write(std::make_shared<io::area::CDataArea>(0, tests::DataBlock(0, "abcd")));
    front->Write(std::make_shared<io::area::CDataArea>(1, io::block::CFibBlock::NewSparseBlock(4, 1, 6)));
    front->Finish(std::make_shared<synch::completion_port_t>());
    EXPECT_EQ(std::string("abcd") + std::string(6, '\0'), target->bytes);
    EXPECT_EQ(3U, digests->GetAll().size());
    EXPECT_EQ(1, target->finished);
}

class reporting_dev_t final : public collecting_dev_t, public IEntryReporter {
  public:
    std::vector<entry_report_t> TakeEntryReports() override { return reports; }
    std::vector<entry_report_t> reports;
};

class listening_source_t final : public tests::block_source_dev_t, public IEntryReportSink {
  public:
    using block_source_dev_t::block_source_dev_t;
    void OnEntryReports(const std::vector<entry_report_t>& reports) override {
        heard = reports;
        if (!complaint.empty()) {
            throw exc::CRuntimeExc(complaint);
        }
    }
    std::vector<entry_report_t> heard;
    std::string complaint;
};

TEST_F(TransmitTest, ReportsOfTheDestinationReachTheSource) {
    const auto far = std::make_shared<reporting_dev_t>();
    far->reports = {{7, 3, "a/b", "no room"}, {8, 4, "c", ""}};
    const auto source = std::make_shared<listening_source_t>(0, 4096, [](std::uint64_t) { return std::string(); });
    kit.Run(source, far);
    EXPECT_EQ("", kit.sent + kit.received);
    EXPECT_EQ(far->reports, source->heard);
    far->onFinish = [](auto&) { throw exc::CRuntimeExc("all lost"); };
    source->heard.clear();
    kit.Run(source, far);
    EXPECT_EQ("all lost", kit.sent);
    EXPECT_EQ(far->reports, source->heard);
}

TEST_F(TransmitTest, FailureToHearReportsDoesNotHideTheTransfers) {
    const auto far = std::make_shared<reporting_dev_t>();
    far->reports = {{7, 3, "a/b", "no room"}};
    const auto source = std::make_shared<listening_source_t>(0, 4096, [](std::uint64_t) { return std::string(); });
    source->complaint = "nobody listens";
    kit.Run(source, far);
    EXPECT_EQ("nobody listens", kit.sent);
    EXPECT_EQ("", kit.received);
    far->onFinish = [](auto&) { throw exc::CRuntimeExc("all lost"); };
    kit.Run(source, far);
    EXPECT_EQ("all lost", kit.sent);
}

class single_area_source_t final : public io::area::area_read_dev_t {
  public:
    explicit single_area_source_t(pool::CPoolPtr<io::block::CFibBlock> block)
        : area_(std::make_shared<io::area::CDataArea>(0, std::move(block))) {}
    std::shared_ptr<io::area::IArea> ReadNext() override { return std::exchange(area_, nullptr); }
    std::string GetDisplayName() override { return "one area"; }
    void SetEmptyBlocksMaximum(std::uint64_t /*maximum*/) override {}

  private:
    std::shared_ptr<io::area::IArea> area_;
};

TEST_F(TransmitTest, BlockThatIsNotWhatItSaysIsRefused) {
    using io::block::CFibBlock;
    const auto sent = [&](pool::CPoolPtr<CFibBlock> block) {
        const auto source = std::make_shared<single_area_source_t>(std::move(block));
        return transfer_kit_t::TextOf([&] { Transmit(source, target, kit.cfg, nullptr); });
    };
    EXPECT_EQ("A block of [7] bytes carries [0] bytes.", sent(CFibBlock::NewBlock({0, 0, 7}, io::block::CDataBlock())));
    EXPECT_EQ("A block of [4] bytes carries [3] bytes.", sent(tests::OddBlock({0, 0, 4}, "abc")));
    EXPECT_EQ("The given block is packed.",
              sent(tests::OddBlock({0, 0, 3}, "abc", io::block::EBufTransformType::eLz4)));
    EXPECT_EQ("A block of [4097] bytes is larger than the transfer's [4096].",
              sent(tests::DataBlock(0, std::string(4097, 'x'))));
    EXPECT_EQ("", target->bytes);
}

}  // namespace
}  // namespace brannock::transmission
