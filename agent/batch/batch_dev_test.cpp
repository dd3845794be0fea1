#include "agent/batch/batch_dev.h"

#include <gtest/gtest.h>

#include <future>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/batch_kit.h"
#include "tests/support/staging_fixture.h"

namespace agent::batch {
namespace {

using tests::AreaOf;
using tests::TextOf;
using tests::ZeroesOf;

/// Keeps what comes.
class keeping_receiver_t final : public IBatchReceiver {
  public:
    void Apply(received_batch_t batch) override { kept = std::move(batch); }

    std::optional<received_batch_t> kept;
};

class BatchDev : public testing::Test {
  protected:
    BatchDev() {
        util::CFileInfo info;
        info.type = util::EFileType::eRegular;
        made_.AddFile("p", info, "some text");
    }

    batch_dev_t Device(std::uint64_t size) {
        return batch_dev_t(PlanBatch(*made_.Token()), size, receiver_, {budget_, std::chrono::milliseconds(0)});
    }
    /// Receives these bytes, announced as they are.
    void Receive(const std::string& frame) {
        batch_dev_t device = Device(frame.size());
        device.Write(AreaOf(frame, 0));
        device.Finish(nullptr);
    }
    bool HasArrived() const { return receiver_->kept.has_value(); }

    tests::batch_maker_t made_;
    const std::shared_ptr<keeping_receiver_t> receiver_ = std::make_shared<keeping_receiver_t>();
    pool::byte_budget_t budget_{1 << 20};
};

TEST_F(BatchDev, HandsOverWhatCameInAnyBlocks) {
    const std::string frame = tests::BatchFrame(made_.stream);
    batch_dev_t device = Device(frame.size());
    EXPECT_EQ(device.GetDisplayName(), "batch of [1] entries");
    for (std::size_t at = 0; at < frame.size(); ++at) {
        device.Write(AreaOf(frame.substr(at, 1), at));
    }
    EXPECT_FALSE(HasArrived());
    device.Finish(nullptr);
    ASSERT_TRUE(HasArrived());
    ASSERT_EQ(receiver_->kept->entries.size(), 1U);
    const batch_entry_t& entry = receiver_->kept->entries[0];
    EXPECT_EQ(entry.item.path, "p");
    EXPECT_EQ(std::string(entry.pieces.at(0).data.data(), entry.size), "some text");
    EXPECT_EQ(receiver_->kept->replace, EReplace::eNo);
}

TEST_F(BatchDev, RunOfZeroesIsContentToo) {
    made_.stream.assign(64, '\0');
    std::string frame = tests::BatchFrame(made_.stream);
    batch_dev_t device = Device(frame.size());
    device.Write(AreaOf(frame.substr(0, 12), 0));
    device.Write(ZeroesOf(frame.size() - 12, 12));
    // Bytes of zero are no block that yields 64 bytes, and this is how far it came.
    EXPECT_NE(TextOf([&] { device.Finish(nullptr); }).find("Incorrect decompression result or length"),
              std::string::npos);
}

TEST_F(BatchDev, SizeOutOfRangeIsRefusedBeforeAnythingIsTaken) {
    for (const std::uint64_t size : {0ULL, 12ULL, 16777217ULL, ~0ULL}) {
        EXPECT_EQ(TextOf([&] { Device(size); }),
                  "A batch of [" + std::to_string(size) + "] bytes is refused: it has [13] to [16777216].");
    }
    EXPECT_EQ(budget_.InUse(), 0U);
}

TEST_F(BatchDev, MemoryForFrameAndContentIsLeasedAtOnceUntilTheContentIsDone) {
    const std::string frame = tests::BatchFrame(made_.stream);
    {
        batch_dev_t device = Device(frame.size());
        EXPECT_EQ(budget_.InUse(), frame.size() + made_.stream.size());
        device.Write(AreaOf(frame, 0));
        device.Finish(nullptr);
    }
    EXPECT_EQ(budget_.InUse(), frame.size() + made_.stream.size()) << "the receiver still has it";
    receiver_->kept.reset();
    EXPECT_EQ(budget_.InUse(), 0U);
}

TEST_F(BatchDev, BatchForWhichNoMemoryComesIsRefused) {
    const auto taken = budget_.AcquireFirst(1 << 20);
    EXPECT_EQ(TextOf([&] { Device(100); }), "Timed out waiting for buffer memory.");
}

TEST_F(BatchDev, BatchWaitsUntilOthersHaveGivenMemoryBack) {
    auto taken = budget_.AcquireFirst(1 << 20);
    auto made = std::async(std::launch::async, [&] {
        return std::make_unique<batch_dev_t>(PlanBatch(*made_.Token()), 100, receiver_,
                                             batch_memory_t{budget_, std::chrono::minutes(5)});
    });
    taken.reset();
    EXPECT_NE(made.get(), nullptr);
}

TEST_F(BatchDev, BytesThatAreMissingOrTooManyAreRefused) {
    const std::string frame = tests::BatchFrame(made_.stream);
    batch_dev_t device = Device(frame.size());
    device.Write(AreaOf(frame.substr(0, 20), 0));
    EXPECT_EQ(TextOf([&] { device.Finish(nullptr); }),
              "A batch ended after [20] bytes, but [" + std::to_string(frame.size()) + "] were announced.");
    batch_dev_t other = Device(frame.size());
    const std::string tooMany = "A batch has more than the announced [" + std::to_string(frame.size()) + "] bytes.";
    EXPECT_EQ(TextOf([&] { other.Write(AreaOf(frame + "x", 0)); }), tooMany);
    EXPECT_EQ(TextOf([&] { other.Write(ZeroesOf(frame.size() + 1, 0)); }), tooMany);
    EXPECT_EQ(TextOf([&] { other.Write(ZeroesOf(~std::uint64_t{0}, 0)); }), tooMany);
    EXPECT_FALSE(HasArrived());
}

TEST_F(BatchDev, BlocksThatDoNotFollowOneAnotherAreRefused) {
    batch_dev_t device = Device(100);
    device.Write(AreaOf("abc", 0));
    EXPECT_NE(TextOf([&] { device.Write(AreaOf("d", 4)); }), "");
    EXPECT_NE(TextOf([&] { device.Write(ZeroesOf(1, 2)); }), "");
}

TEST_F(BatchDev, HeaderSaysWhatTheTokenSays) {
    const std::string frame = tests::BatchFrame(made_.stream + "x");
    EXPECT_EQ(TextOf([&] { Receive(frame); }), "A batch unpacks to [" + std::to_string(made_.stream.size() + 1) +
                                                   "] bytes, but [" + std::to_string(made_.stream.size()) +
                                                   "] were announced.");
    EXPECT_FALSE(HasArrived());
}

TEST_F(BatchDev, DamagedFrameIsRefused) {
    const std::string frame = tests::BatchFrame(made_.stream);
    std::string magic = frame;
    magic[0] = 1;
    EXPECT_EQ(TextOf([&] { Receive(magic); }), "Failed to decompress LZ4 block: incorrect block header.");
    std::string sum = frame;
    sum[4] = static_cast<char>(sum[4] ^ 1);
    EXPECT_NE(TextOf([&] { Receive(sum); }).find("Bad crc"), std::string::npos);
    EXPECT_NE(TextOf([&] { Receive(frame.substr(0, frame.size() - 1)); }), "");
    EXPECT_FALSE(HasArrived());
}

TEST_F(BatchDev, CommandsAreJudgedBeforeAnythingIsHandedOver) {
    made_.stream += "x";
    EXPECT_NE(TextOf([&] { Receive(tests::BatchFrame(made_.stream)); }).find("The commands of a batch are refused."),
              std::string::npos);
    EXPECT_FALSE(HasArrived());
}

TEST_F(BatchDev, BareBytesAreNotTaken) {
    EXPECT_NE(TextOf([&] { Device(100).Write(std::shared_ptr<io::area::area_t>()); }), "");
}

}  // namespace
}  // namespace agent::batch
