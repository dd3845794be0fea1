#include <gtest/gtest.h>

#include "brannock/transmission/frame.h"
#include "brannock/transmission/frame_payload.h"
#include "mirrowen/exc/already_exists_exc.h"
#include "tests/support/fake_clock.h"
#include "tests/support/transfer_kit.h"

// Whatever goes wrong, both ends return, know why and have read exactly the item.
namespace brannock::transmission {
namespace {

using tests::block_source_dev_t;
using tests::collecting_dev_t;
using tests::Noise;
using tests::SourceOf;
using tests::transfer_kit_t;

std::shared_ptr<block_source_dev_t> FailingSource(std::uint64_t atBlock, std::uint64_t count = 30) {
    return std::make_shared<block_source_dev_t>(count, 4096, [atBlock](std::uint64_t index) -> std::string {
        if (index == atBlock) {
            throw exc::CRuntimeExc("The disk is gone.");
        }
        return Noise(4096, index);
    });
}

// The failure comes at block 0 (inline), 1 (as the pipeline starts) or later.
class TransmitFailureTest : public testing::TestWithParam<std::uint64_t> {
  protected:
    void TearDown() override {
        EXPECT_EQ(0, kit.left->GetRunning());
        EXPECT_EQ(0, kit.right->GetRunning());
        EXPECT_EQ(0U, pool::byte_budget_t::Process().InUse());
    }
    void ExpectNextItemGood() {
        const std::string bytes = Noise(30000);
        const auto next = std::make_shared<collecting_dev_t>();
        kit.Run(SourceOf(bytes), next);
        EXPECT_EQ("", kit.sent);
        EXPECT_EQ("", kit.received);
        EXPECT_EQ(bytes, next->bytes);
    }

    // Whose wire is cut waits a moment more. The time moves so slowly that the far end's patience does not end first.
    static void Linger(tests::fake_clock_t& clock, const std::future<std::string>& end,
                       std::chrono::milliseconds step = std::chrono::milliseconds(100)) {
        while (end.wait_for(util::kWaitSlice) != std::future_status::ready) {
            clock.Advance(step);
        }
    }

    transfer_kit_t kit;
    std::shared_ptr<collecting_dev_t> target = std::make_shared<collecting_dev_t>();
    const std::string text = Noise(std::size_t{4096} * 30);
};

TEST_P(TransmitFailureTest, SourceThrows) {
    kit.Run(FailingSource(GetParam()), target);
    EXPECT_EQ("The disk is gone.", kit.sent);
    EXPECT_EQ("The disk is gone.", kit.received);
    EXPECT_EQ(0, target->finished);
    ExpectNextItemGood();
}

TEST_P(TransmitFailureTest, DestinationThrows) {
    target->onBlock = [](const auto& block) {
        if (block.GetIdentity().id == GetParam()) {
            throw exc::CRuntimeExc("No space.");
        }
    };
    kit.Run(SourceOf(text), target);
    EXPECT_EQ("No space.", kit.sent);
    EXPECT_EQ("No space.", kit.received);
    EXPECT_EQ(0, target->finished);
    ExpectNextItemGood();
}

TEST_P(TransmitFailureTest, BothThrowAtOnce) {
    target->onBlock = [](const auto& block) {
        if (block.GetIdentity().id == GetParam()) {
            throw exc::CRuntimeExc("No space.");
        }
    };
    kit.Run(FailingSource(GetParam() + 1), target);
    EXPECT_TRUE(kit.sent == "The disk is gone." || kit.sent == "No space.") << kit.sent;
    EXPECT_TRUE(kit.received == "The disk is gone." || kit.received == "No space.") << kit.received;
    ExpectNextItemGood();
}

TEST_P(TransmitFailureTest, AlreadyExistsKeepsItsType) {
    target->onBlock = [](const auto& block) {
        if (block.GetIdentity().id == GetParam()) {
            throw exc::CAlreadyExistsExc("It is there.");
        }
    };
    auto far = std::async(std::launch::async, [&] { kit.Receive(target); });
    EXPECT_THROW(kit.Send(SourceOf(text)), exc::CAlreadyExistsExc);
    EXPECT_THROW(far.get(), exc::CAlreadyExistsExc);
}

TEST_P(TransmitFailureTest, WritesToTheChannelFail) {
    kit.left->FailWritesAfter(static_cast<std::size_t>(GetParam()) * 4176 + 100);
    tests::fake_clock_t clock;
    auto far = std::async(std::launch::async, [&] { return transfer_kit_t::TextOf([&] { kit.Receive(target); }); });
    auto near =
        std::async(std::launch::async, [&] { return transfer_kit_t::TextOf([&] { kit.Send(SourceOf(text)); }); });
    EXPECT_TRUE(kit.left->WaitForCut());
    Linger(clock, near);  // for the receiver's reasons
    EXPECT_EQ("The wire is cut.", near.get());
    EXPECT_EQ("The far end closed the channel during a transfer.", far.get());
    EXPECT_EQ(0, target->finished);
}

TEST_P(TransmitFailureTest, ReceiverCannotAnswer) {
    kit.right->FailWritesAfter(static_cast<std::size_t>(GetParam()) * 80 + 10);
    tests::fake_clock_t clock;
    auto near =
        std::async(std::launch::async, [&] { return transfer_kit_t::TextOf([&] { kit.Send(SourceOf(text)); }); });
    auto far = std::async(std::launch::async, [&] { return transfer_kit_t::TextOf([&] { kit.Receive(target); }); });
    EXPECT_TRUE(kit.right->WaitForCut());
    Linger(clock, far);
    Linger(clock, near, std::chrono::seconds(10));  // for an answer that does not come
    EXPECT_EQ("The wire is cut.", far.get());
    EXPECT_NE("", near.get());
}

TEST_P(TransmitFailureTest, ReceiverGoesAway) {
    auto near =
        std::async(std::launch::async, [&] { return transfer_kit_t::TextOf([&] { kit.Send(SourceOf(text)); }); });
    std::string some(std::min<std::size_t>(GetParam(), 7) * 4000 + 1, '\0');
    for (std::size_t at = 0; at < some.size();) {
        at += kit.right->Read(some.data() + at, some.size() - at);
    }
    kit.right->Cancel();
    EXPECT_NE("", near.get());
}

TEST_P(TransmitFailureTest, StopRequestEndsBothEnds) {
    target->onBlock = [&](const auto& block) {
        if (block.GetIdentity().id == GetParam()) {
            kit.left->RequestStop();
        }
    };
    target->onFinish = [&](auto&) { kit.left->RequestStop(); };
    const auto endless =
        std::make_shared<block_source_dev_t>(1000000000, 4096, [](std::uint64_t index) { return Noise(4096, index); });
    kit.Run(endless, target);
    EXPECT_EQ("The transfer was cancelled.", kit.sent);
    EXPECT_NE("", kit.received);
    EXPECT_EQ(0, target->finished);
}

class cancelling_progress_t final : public progress::progress_base_t {
  public:
    explicit cancelling_progress_t(std::uint64_t after) : left_(after) {}
    void OnProgress(std::uint64_t /*bytes*/) override {
        if (left_-- == 0) {
            throw exc::CRuntimeExc("Cancelled by hand.");
        }
    }

  private:
    std::uint64_t left_;
};

TEST_P(TransmitFailureTest, ProgressCancels) {
    auto far = std::async(std::launch::async, [&] { return transfer_kit_t::TextOf([&] { kit.Receive(target); }); });
    const auto progress = std::make_shared<cancelling_progress_t>(GetParam());
    EXPECT_EQ("Cancelled by hand.", transfer_kit_t::TextOf([&] { kit.Send(SourceOf(text), progress); }));
    EXPECT_EQ("Cancelled by hand.", far.get());
    ExpectNextItemGood();
}

INSTANTIATE_TEST_SUITE_P(AtBlock, TransmitFailureTest, testing::Values(0, 1, 2, 12, 29));

class TransmitFinishTest : public TransmitFailureTest {};

TEST_P(TransmitFinishTest, FinishThrows) {
    target->onFinish = [](auto&) { throw exc::CRuntimeExc("Flush failed."); };
    kit.Run(SourceOf(Noise(GetParam())), target);
    EXPECT_EQ("Flush failed.", kit.sent);
    EXPECT_EQ("Flush failed.", kit.received);
    EXPECT_EQ(1, target->finished);
    ExpectNextItemGood();
}

TEST_P(TransmitFinishTest, ErrorOfThePortCounts) {
    target->onFinish = [](synch::completion_port_t& port) {
        port.PostError(std::make_exception_ptr(exc::CAlreadyExistsExc("Late.")));
    };
    kit.Run(SourceOf(Noise(GetParam())), target);
    EXPECT_EQ("Late.", kit.sent);
    EXPECT_EQ("Late.", kit.received);
    ExpectNextItemGood();
}

INSTANTIATE_TEST_SUITE_P(OfSize, TransmitFinishTest, testing::Values(0, 10, 50000));

}  // namespace
}  // namespace brannock::transmission
