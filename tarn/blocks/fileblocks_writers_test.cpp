#include <map>
#include <stdexcept>
#include <type_traits>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "mirrowen/exc/already_exists_exc.h"
#include "mirrowen/exc/not_impl_exc.h"
#include "mirrowen/exc/runtime_exc.h"
#include "tarn/blocks/rnd_fileblocks_writer.h"
#include "tarn/blocks/seq_fileblocks_writer.h"
#include "tests/support/blocks.h"
#include "tests/support/caught_error.h"
#include "tests/support/logged.h"
#include "tests/support/recording_wstream.h"

namespace {

using io::area::EAreaKind;
using io::block::EBufTransformType;
using testing::ElementsAre;
using testing::IsEmpty;

/// An area that notes what it is asked.
class scripted_area_t final : public io::area::IArea {
  public:
    scripted_area_t(EAreaKind kind, std::uint64_t offset, std::uint64_t size)
        : kind_(kind), offset_(offset), size_(size) {}

    void Add(pool::CPoolPtr<io::block::CFibBlock> block) { blocks_.push_back(std::move(block)); }
    const std::vector<std::string>& Asked() const { return asked_; }

    EAreaKind GetKind() const override { return Note("kind"), kind_; }
    std::uint64_t GetOffset() const override { return Note("offset"), offset_; }
    std::uint64_t GetSize() const override { return Note("size"), size_; }
    std::uint64_t GetBlockCount() const override { return Note("count"), blocks_.size(); }
    pool::CPoolPtr<io::block::CFibBlock> GetBlock(std::uint64_t index) const override {
        Note("block " + std::to_string(index));
        return blocks_.at(index);
    }
    io::area::SAreaMeta& GetMeta() override { return meta_; }
    const io::area::SAreaMeta& GetMeta() const override { return meta_; }
    void ReleaseBlock(std::uint64_t index) override {
        Note("release " + std::to_string(index));
        blocks_.at(index).reset();
    }

  private:
    void Note(std::string call) const { asked_.push_back(std::move(call)); }

    EAreaKind kind_;
    std::uint64_t offset_;
    std::uint64_t size_;
    std::vector<pool::CPoolPtr<io::block::CFibBlock>> blocks_;
    io::area::SAreaMeta meta_;
    mutable std::vector<std::string> asked_;
};

template <class Writer>
class FileblocksWriters : public testing::Test {
  protected:
    std::shared_ptr<tests::recording_wstream_t> stream = std::make_shared<tests::recording_wstream_t>();
    Writer writer{stream};
};

class RndFileblocksWriter : public FileblocksWriters<tarn::rnd_fileblocks_writer_t> {};
class SeqFileblocksWriter : public FileblocksWriters<tarn::seq_fileblocks_writer_t> {};

using both_t = testing::Types<tarn::rnd_fileblocks_writer_t, tarn::seq_fileblocks_writer_t>;
template <class Writer>
class BothFileblocksWriters : public FileblocksWriters<Writer> {};

struct writer_names_t {
    template <class Writer>
    static std::string GetName(int) {
        return std::is_same_v<Writer, tarn::rnd_fileblocks_writer_t> ? "rnd" : "seq";
    }
};
TYPED_TEST_SUITE(BothFileblocksWriters, both_t, writer_names_t);

template <class Writer>
constexpr const char* kNameOf =
    std::is_same_v<Writer, tarn::rnd_fileblocks_writer_t> ? "rnd_fileblocks_writer_t" : "seq_fileblocks_writer_t";

constexpr const char* kAppendFailed =
    "Cannot append file block to the end of file. File: [/target]. Write position: [0].";

static_assert(std::is_base_of_v<io::area::area_write_dev_t, tarn::rnd_fileblocks_writer_t>);
static_assert(std::is_base_of_v<io::area::area_write_dev_t, tarn::seq_fileblocks_writer_t>);
static_assert(static_cast<std::uint32_t>(EAreaKind::eData) == 1 &&
              static_cast<std::uint32_t>(EAreaKind::eSparse) == 2 &&
              static_cast<std::uint32_t>(EAreaKind::eNothing) == 3);

TYPED_TEST(BothFileblocksWriters, AreNamedByTheStreamsPath) {
    EXPECT_EQ(this->writer.GetDisplayName(), "/target");
}

TYPED_TEST(BothFileblocksWriters, DoNotTakeBareBytes) {
    const tests::log_capture_t log;
    const auto caught = tests::CatchError([&] { this->writer.Write(std::make_shared<io::area::area_t>()); });
    EXPECT_EQ(caught.type, "exc::CNotImplExc");
    EXPECT_EQ(caught.message, std::string(kNameOf<TypeParam>) + "::Write");
    EXPECT_TRUE(tests::Logged(log, logging::ELevel::eTrace, std::string(kNameOf<TypeParam>) + "::Write"));
    EXPECT_THAT(this->stream->Calls(), IsEmpty());
}

TYPED_TEST(BothFileblocksWriters, FinishFlushesAndThenClosesWithThePort) {
    const auto port = std::make_shared<synch::completion_port_t>();
    this->writer.Finish(port);
    EXPECT_THAT(this->stream->Calls(), ElementsAre("Flush", "Close with port"));
    EXPECT_EQ(this->stream->Port(), port);
}

TYPED_TEST(BothFileblocksWriters, FinishDoesNotCloseWhatCouldNotBeFlushed) {
    this->stream->FailAt("Flush", "no space");
    EXPECT_EQ(tests::CatchError([&] { this->writer.Finish(nullptr); }).message, "no space");
    EXPECT_THAT(this->stream->Calls(), ElementsAre("Flush"));
}

TYPED_TEST(BothFileblocksWriters, WriteBlockReturnsTheBytesWrittenSoFar) {
    EXPECT_EQ(this->writer.WriteBlock(tests::DataBlock(0, "abc")), 3U);
    EXPECT_EQ(this->writer.WriteBlock(tests::DataBlock(3, "defgh")), 8U);
    EXPECT_EQ(this->stream->Content(), "abcdefgh");
}

TYPED_TEST(BothFileblocksWriters, SparseBlockIsWrittenAsZeroesAndCounts) {
    EXPECT_EQ(this->writer.WriteBlock(io::block::CFibBlock::NewSparseBlock(0, 0, 5)), 5U);
    EXPECT_EQ(this->writer.WriteBlock(tests::DataBlock(5, "x")), 6U);
    EXPECT_EQ(this->stream->Content(), std::string("\0\0\0\0\0x", 6));
}

TYPED_TEST(BothFileblocksWriters, PackedBlockIsRefused) {
    // Any value but all ones means packed, also one that no transform has.
    for (const auto compression : {EBufTransformType::eLz4, EBufTransformType::eZstd, static_cast<EBufTransformType>(0),
                                   static_cast<EBufTransformType>(0xFFFFFFFE)}) {
        const auto caught = tests::CatchError([&] {
            this->writer.WriteBlock(tests::OddBlock({0, 0, 3}, "abc", compression));
        });
        EXPECT_EQ(caught.type, "exc::CRuntimeExc");
        EXPECT_EQ(caught.message, kAppendFailed);
        EXPECT_THAT(caught.causes, ElementsAre("The given block is packed."));
    }
    EXPECT_EQ(this->stream->Content(), "");
}

TYPED_TEST(BothFileblocksWriters, BlockWhoseContentHasAnotherLengthIsRefused) {
    const auto caught = tests::CatchError([&] { this->writer.WriteBlock(tests::OddBlock({0, 0, 4}, "abc")); });
    EXPECT_EQ(caught.message, kAppendFailed);
    EXPECT_THAT(caught.causes,
                ElementsAre("Declared size of the data and the length of the supplied buffer are different. Declared "
                            "data size: [4]. Buffer length: [3]."));
    EXPECT_EQ(this->stream->Content(), "");
}

TYPED_TEST(BothFileblocksWriters, BlockWithoutAnyContentCountsAsEmpty) {
    const auto bare = io::block::CFibBlock::NewBlock({0, 0, 7}, io::block::CDataBlock());
    EXPECT_THAT(tests::CatchError([&] { this->writer.WriteBlock(bare); }).causes,
                ElementsAre("Declared size of the data and the length of the supplied buffer are different. Declared "
                            "data size: [7]. Buffer length: [0]."));
    EXPECT_EQ(this->writer.WriteBlock(io::block::CFibBlock::NewBlock({0, 0, 0}, io::block::CDataBlock())), 0U);
}

TYPED_TEST(BothFileblocksWriters, FailureOfTheStreamIsWrappedWithPathAndPosition) {
    this->writer.WriteBlock(tests::DataBlock(0, "abc"));
    this->stream->FailAt("WriteExc 2", "no space left");
    const auto caught = tests::CatchError([&] { this->writer.WriteBlock(tests::DataBlock(3, "de")); });
    EXPECT_EQ(caught.type, "exc::CRuntimeExc");
    EXPECT_EQ(caught.message, "Cannot append file block to the end of file. File: [/target]. Write position: [3].");
    EXPECT_THAT(caught.causes, ElementsAre("no space left"));
}

TYPED_TEST(BothFileblocksWriters, FailedBlockDoesNotMoveThePosition) {
    this->stream->FailAt("WriteExc", "no space left");
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(tests::CatchError([&] { this->writer.WriteBlock(tests::DataBlock(0, "abc")); }).message,
                  kAppendFailed);
    }
}

TYPED_TEST(BothFileblocksWriters, BlocksOfAnAreaAreWrittenByIndexAndReleasedAtOnce) {
    const auto area = std::make_shared<scripted_area_t>(EAreaKind::eData, 0, 6);
    area->Add(tests::DataBlock(0, "abc"));
    area->Add({});
    area->Add(tests::DataBlock(3, "def", 1));
    this->writer.Write(area);
    EXPECT_EQ(this->stream->Content(), "abcdef");
    const std::vector<std::string> asked(std::find(area->Asked().begin(), area->Asked().end(), "count"),
                                         area->Asked().end());
    EXPECT_THAT(asked, ElementsAre("count", "block 0", "release 0", "block 1", "block 2", "release 2"));
}

TYPED_TEST(BothFileblocksWriters, WrittenBlocksLeaveNoHolder) {
    const auto area = std::make_shared<scripted_area_t>(EAreaKind::eData, 0, 3);
    auto counted = std::make_shared<io::block::CFibBlock>(*tests::DataBlock(0, "abc"));
    const std::weak_ptr<io::block::CFibBlock> watch = counted;
    area->Add(pool::CPoolPtr<io::block::CFibBlock>(std::move(counted)));
    this->writer.Write(area);
    EXPECT_TRUE(watch.expired());
}

TEST_F(RndFileblocksWriter, SeeksToEachBlock) {
    writer.WriteBlock(tests::DataBlock(4096, "abc"));
    writer.WriteBlock(io::block::CFibBlock::NewSparseBlock(100, 1, 7));
    EXPECT_THAT(stream->Calls(), ElementsAre("SeekTo 4096", "WriteExc 3", "SeekTo 100", "WriteZeroes 7"));
}

TEST_F(RndFileblocksWriter, TakesBlocksInDescendingOrder) {
    writer.WriteBlock(tests::DataBlock(4, "ef"));
    writer.WriteBlock(tests::DataBlock(2, "cd"));
    EXPECT_EQ(writer.WriteBlock(tests::DataBlock(0, "ab")), 6U);
    EXPECT_EQ(stream->Content(), "abcdef");
}

TEST_F(RndFileblocksWriter, EncryptedBlockIsRefused) {
    const auto caught = tests::CatchError([&] {
        writer.WriteBlock(tests::OddBlock({0, 0, 3}, "abc", EBufTransformType::eNone, true));
    });
    EXPECT_EQ(caught.message, kAppendFailed);
    EXPECT_THAT(caught.causes, ElementsAre("The source data is encrypted."));
    EXPECT_EQ(stream->Content(), "");
}

TEST_F(RndFileblocksWriter, LooksForPackingThenEncryptionThenSize) {
    EXPECT_THAT(tests::CatchError([&] {
                    writer.WriteBlock(tests::OddBlock({0, 0, 9}, "abc", EBufTransformType::eLz4, true));
                }).causes,
                ElementsAre("The given block is packed."));
    EXPECT_THAT(tests::CatchError([&] {
                    writer.WriteBlock(tests::OddBlock({0, 0, 9}, "abc", EBufTransformType::eNone, true));
                }).causes,
                ElementsAre("The source data is encrypted."));
}

TEST_F(RndFileblocksWriter, FailedSeekIsWrappedWithTheCountOfBytesNotTheOffset) {
    writer.WriteBlock(tests::DataBlock(50, "abc"));
    stream->FailAt("SeekTo 8", "no seek");
    const auto caught = tests::CatchError([&] { writer.WriteBlock(tests::DataBlock(8, "x")); });
    EXPECT_EQ(caught.message, "Cannot append file block to the end of file. File: [/target]. Write position: [3].");
    EXPECT_THAT(caught.causes, ElementsAre("no seek"));
}

TEST_F(RndFileblocksWriter, AreaOfNothingChangesNothing) {
    const auto area = std::make_shared<scripted_area_t>(EAreaKind::eNothing, 77, 5);
    area->Add(tests::DataBlock(77, "abcde"));
    writer.Write(area);
    EXPECT_THAT(stream->Calls(), IsEmpty());
    EXPECT_THAT(area->Asked(), ElementsAre("kind"));
}

TEST_F(RndFileblocksWriter, SparseAreaIsWrittenAsZeroesAtItsOffset) {
    const auto area = std::make_shared<scripted_area_t>(EAreaKind::eSparse, 77, 5);
    area->Add(tests::DataBlock(77, "abcde"));
    writer.Write(area);
    EXPECT_THAT(stream->Calls(), ElementsAre("SeekTo 77", "WriteZeroes 5"));
}

TEST_F(RndFileblocksWriter, AreaWithoutBlocksOnlySeeks) {
    writer.Write(std::make_shared<scripted_area_t>(EAreaKind::eData, 77, 0));
    EXPECT_THAT(stream->Calls(), ElementsAre("SeekTo 77"));
}

TEST_F(SeqFileblocksWriter, BlockElsewhereThanTheEndIsRefused) {
    const auto caught = tests::CatchError([&] { writer.WriteBlock(tests::DataBlock(4096, "abc")); });
    EXPECT_EQ(caught.type, "exc::CRuntimeExc");
    EXPECT_EQ(caught.message, kAppendFailed);
    EXPECT_THAT(caught.causes,
                ElementsAre("Block offset in source file differs from the current write position in target file. "
                            "Block offset: [4096]. Write offset: [0]."));
    EXPECT_THAT(stream->Calls(), IsEmpty());
}

TEST_F(SeqFileblocksWriter, OffsetIsLookedAtFirst) {
    EXPECT_THAT(tests::CatchError([&] {
                    writer.WriteBlock(tests::OddBlock({0, 1, 9}, "abc", EBufTransformType::eLz4, true));
                }).causes,
                ElementsAre("Block offset in source file differs from the current write position in target file. "
                            "Block offset: [1]. Write offset: [0]."));
    EXPECT_THAT(tests::CatchError([&] {
                    writer.WriteBlock(tests::OddBlock({0, 0, 9}, "abc", EBufTransformType::eLz4));
                }).causes,
                ElementsAre("The given block is packed."));
}

TEST_F(SeqFileblocksWriter, NeverSeeks) {
    writer.WriteBlock(tests::DataBlock(0, "abc"));
    writer.WriteBlock(io::block::CFibBlock::NewSparseBlock(3, 1, 4));
    writer.WriteBlock(tests::DataBlock(7, "de"));
    EXPECT_THAT(stream->Calls(), ElementsAre("WriteExc 3", "WriteZeroes 4", "WriteExc 2"));
}

TEST_F(SeqFileblocksWriter, EncryptedBytesAreWrittenAsTheyAre) {
    EXPECT_EQ(writer.WriteBlock(tests::OddBlock({0, 0, 3}, "\x01\xff\x7f", EBufTransformType::eNone, true)), 3U);
    EXPECT_EQ(stream->Content(), "\x01\xff\x7f");
}

TEST_F(SeqFileblocksWriter, AsksAnAreaOnlyForItsBlocks) {
    const auto area = std::make_shared<scripted_area_t>(EAreaKind::eNothing, 77, 5);
    area->Add(tests::DataBlock(0, "abc"));
    writer.Write(area);
    EXPECT_EQ(stream->Content(), "abc");
    EXPECT_THAT(area->Asked(), ElementsAre("count", "block 0", "release 0"));
}

TEST_F(SeqFileblocksWriter, AreaWithoutBlocksTouchesNothing) {
    writer.Write(std::make_shared<scripted_area_t>(EAreaKind::eSparse, 77, 5));
    EXPECT_THAT(stream->Calls(), IsEmpty());
}

}  // namespace
