#include <atomic>
#include <deque>
#include <limits>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "mirrowen/exc/runtime_exc.h"
#include "tarn/blocks/seq_fileblocks_reader.h"
#include "tests/support/blocks.h"
#include "tests/support/caught_error.h"
#include "tests/support/scripted_rstream.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

static_assert(std::is_base_of_v<io::area::area_read_dev_t, tarn::seq_fileblocks_reader_t>);

struct piece_t {
    std::uint64_t id;
    std::uint64_t offset;
    std::string bytes;
    std::uint64_t readSize;
    friend bool operator==(const piece_t&, const piece_t&) = default;
};

void PrintTo(const piece_t& piece, std::ostream* out) {
    *out << piece.id << " at " << piece.offset << ": '" << piece.bytes << "' of " << piece.readSize;
}

piece_t PieceOf(io::area::IArea& area) {
    auto& data = dynamic_cast<io::area::CDataArea&>(area);
    EXPECT_EQ(data.GetKind(), io::area::EAreaKind::eData);
    EXPECT_EQ(data.GetBlockCount(), 1U);
    const auto block = data.GetBlock(0);
    const auto& identity = block->GetIdentity();
    EXPECT_EQ(identity.id, data.GetId());
    EXPECT_EQ(identity.offset, data.GetOffset());
    EXPECT_EQ(identity.size, data.GetSize());
    EXPECT_EQ(block->GetDataBlock().GetCompression(), io::block::EBufTransformType::eNone);
    EXPECT_FALSE(block->GetDataBlock().IsEncrypted());
    return {identity.id, identity.offset, tests::BytesOf(*block), data.GetMeta().GetReadSize()};
}

std::vector<piece_t> ReadAll(tarn::seq_fileblocks_reader_t& reader) {
    std::vector<piece_t> pieces;
    while (const auto area = reader.ReadNext()) {
        pieces.push_back(PieceOf(*area));
    }
    return pieces;
}

TEST(SeqFileblocksReader, FileOfWholeBlocksYieldsThemAndThenNothing) {
    const auto stream = std::make_shared<tests::scripted_rstream_t>("aaabbbccc");
    tarn::seq_fileblocks_reader_t reader(stream, 3, 9);
    EXPECT_THAT(ReadAll(reader),
                ElementsAre(piece_t{0, 0, "aaa", 3}, piece_t{1, 3, "bbb", 6}, piece_t{2, 6, "ccc", 9}));
    EXPECT_THAT(stream->Asked(), ElementsAre(3, 3, 3));
    EXPECT_EQ(stream->Finished(), 1);
}

TEST(SeqFileblocksReader, LastBlockIsShorterWhenTheSizeIsNoMultiple) {
    const auto stream = std::make_shared<tests::scripted_rstream_t>("aaab");
    tarn::seq_fileblocks_reader_t reader(stream, 3, 4);
    EXPECT_THAT(ReadAll(reader), ElementsAre(piece_t{0, 0, "aaa", 3}, piece_t{1, 3, "b", 4}));
    EXPECT_THAT(stream->Asked(), ElementsAre(3, 1));
}

TEST(SeqFileblocksReader, ShortReadEndsTheBlockAndTheNextFollowsOn) {
    const auto stream = std::make_shared<tests::scripted_rstream_t>("abcdefg", 2);
    tarn::seq_fileblocks_reader_t reader(stream, 3, 7);
    EXPECT_THAT(ReadAll(reader), ElementsAre(piece_t{0, 0, "ab", 2}, piece_t{1, 2, "cd", 4}, piece_t{2, 4, "ef", 6},
                                             piece_t{3, 6, "g", 7}));
    EXPECT_THAT(stream->Asked(), ElementsAre(3, 3, 3, 1));
}

TEST(SeqFileblocksReader, NothingMoreIsReadPastTheGivenEnd) {
    const auto stream = std::make_shared<tests::scripted_rstream_t>("abcdef");
    tarn::seq_fileblocks_reader_t reader(stream, 4, 5);
    EXPECT_THAT(ReadAll(reader), ElementsAre(piece_t{0, 0, "abcd", 4}, piece_t{1, 4, "e", 5}));
}

TEST(SeqFileblocksReader, StreamThatEndsEarlyEndsTheReading) {
    const auto stream = std::make_shared<tests::scripted_rstream_t>("abc");
    tarn::seq_fileblocks_reader_t reader(stream, 2, 100);
    EXPECT_THAT(ReadAll(reader), ElementsAre(piece_t{0, 0, "ab", 2}, piece_t{1, 2, "c", 3}));
    EXPECT_EQ(stream->Finished(), 1);
}

TEST(SeqFileblocksReader, EndOfZeroYieldsNothingAndFinishesTheStream) {
    const auto stream = std::make_shared<tests::scripted_rstream_t>("abc");
    tarn::seq_fileblocks_reader_t reader(stream, 2, 0);
    EXPECT_EQ(reader.ReadNext(), nullptr);
    EXPECT_EQ(stream->Finished(), 1);
    EXPECT_THAT(stream->Asked(), IsEmpty());
}

TEST(SeqFileblocksReader, AfterTheEndItStaysEmptyAndTheStreamIsFinishedOnce) {
    const auto stream = std::make_shared<tests::scripted_rstream_t>("ab");
    tarn::seq_fileblocks_reader_t reader(stream, 2, 2);
    ReadAll(reader);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(reader.ReadNext(), nullptr);
    }
    EXPECT_EQ(stream->Finished(), 1);
}

TEST(SeqFileblocksReader, EndNearTheLargestNumberDoesNotWrap) {
    const auto stream = std::make_shared<tests::scripted_rstream_t>("abcdef");
    tarn::seq_fileblocks_reader_t reader(stream, 4, std::numeric_limits<std::uint64_t>::max());
    EXPECT_THAT(ReadAll(reader), ElementsAre(piece_t{0, 0, "abcd", 4}, piece_t{1, 4, "ef", 6}));
}

TEST(SeqFileblocksReader, IsNamedByTheStreamsPath) {
    tarn::seq_fileblocks_reader_t reader(std::make_shared<tests::scripted_rstream_t>(""), 4, 0);
    EXPECT_EQ(reader.GetDisplayName(), "/source");
}

TEST(SeqFileblocksReader, MaximumOfEmptyBlocksChangesNothing) {
    const auto stream = std::make_shared<tests::scripted_rstream_t>(std::string(6, '\0'));
    tarn::seq_fileblocks_reader_t reader(stream, 3, 6);
    reader.SetEmptyBlocksMaximum(0);
    EXPECT_EQ(ReadAll(reader).size(), 2U);
}

TEST(SeqFileblocksReader, TotalGoesOnFromTheNumberThatWasSet) {
    tarn::seq_fileblocks_reader_t reader(std::make_shared<tests::scripted_rstream_t>("abcdef"), 3, 6);
    reader.SetReadDataSize(1000);
    EXPECT_THAT(ReadAll(reader), ElementsAre(piece_t{0, 0, "abc", 1003}, piece_t{1, 3, "def", 1006}));
}

TEST(SeqFileblocksReader, FailureNamesFileOffsetAndStandardBlockSize) {
    const auto stream = std::make_shared<tests::scripted_rstream_t>("abcdef");
    stream->FailAtCall(2);
    tarn::seq_fileblocks_reader_t reader(stream, 3, 6);
    ASSERT_NE(reader.ReadNext(), nullptr);
    const auto caught = tests::CatchError([&] { reader.ReadNext(); });
    EXPECT_EQ(caught.type, "exc::CRuntimeExc");
    EXPECT_EQ(caught.message, "Unable to read file block. File: [/source]. Offset: [3]. Block granularity: [3].");
    EXPECT_THAT(caught.causes, ElementsAre("the disk is gone"));
    EXPECT_EQ(stream->Finished(), 0);
}

TEST(SeqFileblocksReader, GranularityOutOfRangeIsRefused) {
    const auto stream = std::make_shared<tests::scripted_rstream_t>("abc");
    EXPECT_EQ(tests::CatchError([&] { tarn::seq_fileblocks_reader_t(stream, 0, 3); }).message,
              "Block granularity [0] is out of range.");
    EXPECT_EQ(
        tests::CatchError([&] { tarn::seq_fileblocks_reader_t(stream, io::block::kMaxBlockSize + 1, 3); }).message,
        "Block granularity [16777217] is out of range.");
}

TEST(SeqFileblocksReader, KeepsNoHoldOnWhatItHandsOut) {
    tarn::seq_fileblocks_reader_t reader(std::make_shared<tests::scripted_rstream_t>("abc"), 3, 3);
    auto area = reader.ReadNext();
    const std::byte* const place = area->GetBlock(0)->GetDataBlock().GetContent().Data();
    area.reset();
    // The buffer went back to the pool: the next one of its size is the same memory.
    EXPECT_EQ(io::block::CContentBuf::Alloc(3)->Data(), place);
}

TEST(SeqFileblocksReader, BuffersCanCarryALease) {
    pool::byte_budget_t budget(100);
    tarn::seq_fileblocks_reader_t reader(std::make_shared<tests::scripted_rstream_t>("abc"), 3, 3);
    auto area = reader.ReadNext();
    area->GetBlock(0)->GetDataBlock().GetContentPtr()->SetLease(budget.AcquireFirst(3));
    EXPECT_EQ(budget.InUse(), 3U);
    area.reset();
    EXPECT_EQ(budget.InUse(), 0U);
}

/// Areas on their way to the threads that drop them.
class area_queue_t {
  public:
    void Push(std::shared_ptr<io::area::IArea> area) {
        const std::lock_guard lock(mutex_);
        areas_.push_back(std::move(area));
    }
    std::shared_ptr<io::area::IArea> Pop() {
        const std::lock_guard lock(mutex_);
        if (areas_.empty()) {
            return nullptr;
        }
        auto area = std::move(areas_.front());
        areas_.pop_front();
        return area;
    }

  private:
    std::mutex mutex_;
    std::deque<std::shared_ptr<io::area::IArea>> areas_;
};

TEST(SeqFileblocksReader, BlocksMayBeDroppedOnOtherThreadsWhileItReadsOn) {
    constexpr std::size_t kBlocks = 2000;
    std::string content;
    for (std::size_t i = 0; i < kBlocks; ++i) {
        content += std::string(16, static_cast<char>('a' + i % 26));
    }
    tarn::seq_fileblocks_reader_t reader(std::make_shared<tests::scripted_rstream_t>(content), 16, content.size());
    area_queue_t queue;
    std::atomic<bool> done = false;
    std::atomic<std::size_t> good = 0;
    std::vector<std::jthread> droppers;
    for (int i = 0; i < 3; ++i) {
        droppers.emplace_back([&] {
            for (bool last = false; !last;) {
                last = done;  // looked at first, so that nothing pushed before is left
                while (const auto area = queue.Pop()) {
                    good += tests::BytesOf(*area->GetBlock(0)) == content.substr(area->GetOffset(), 16) ? 1U : 0U;
                }
                std::this_thread::yield();
            }
        });
    }
    while (auto area = reader.ReadNext()) {
        queue.Push(std::move(area));
    }
    done = true;
    droppers.clear();
    EXPECT_EQ(good, kBlocks);
}

}  // namespace
