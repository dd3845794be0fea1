#include "agent/staging/sparse_writer.h"

#include <gtest/gtest.h>

#include <limits>

#include "mirrowen/exc/runtime_exc.h"
#include "tests/support/blocks.h"
#include "tests/support/faulty_syscalls.h"
#include "tests/support/hole_map.h"
#include "tests/support/staging_fixture.h"
#include "tests/support/temp_dir.h"

namespace agent {
namespace {

using tests::AreaOf;
using tests::DataExtentsOf;
using tests::extent_t;
using tests::ReadFile;
using tests::TextOf;
using tests::ZeroesOf;

constexpr std::uint64_t kPiece = 65536;
constexpr std::uint64_t kTiB = std::uint64_t{1} << 40;

// A run of zeroes as bare offset and size.
class bare_hole_t final : public io::area::IArea {
  public:
    bare_hole_t(std::uint64_t offset, std::uint64_t size) : offset_(offset), size_(size) {}
    io::area::EAreaKind GetKind() const override { return io::area::EAreaKind::eSparse; }
    std::uint64_t GetOffset() const override { return offset_; }
    std::uint64_t GetSize() const override { return size_; }
    std::uint64_t GetBlockCount() const override { return 0; }
    pool::CPoolPtr<io::block::CFibBlock> GetBlock(std::uint64_t) const override { return {}; }
    io::area::SAreaMeta& GetMeta() override { return meta_; }
    const io::area::SAreaMeta& GetMeta() const override { return meta_; }
    void ReleaseBlock(std::uint64_t) override {}

  private:
    const std::uint64_t offset_;
    const std::uint64_t size_;
    io::area::SAreaMeta meta_;
};

class SparseWriter : public testing::Test {
  protected:
    void Write(const std::shared_ptr<io::area::IArea>& area) { writer.Write(*area); }
    // The text of the failure and of what lies below it.
    std::string FailureOf(const std::shared_ptr<io::area::IArea>& area) {
        try {
            writer.Write(*area);
        } catch (const exc::CRuntimeExc& error) {
            return error.what();
        }
        return {};
    }
    std::string CannotAppend(std::uint64_t position, const std::string& cause) const {
        return "Cannot append file block to the end of file. File: [" + path + "]. Write position: [" +
               std::to_string(position) + "].\n" + cause;
    }

    const tests::temp_dir_t dir;
    const std::string path = dir / "file";
    const std::shared_ptr<posix::posix_file_t> file = posix::posix_file_t::CreateNew(path, 0);
    sparse_writer_t writer{file};
};

TEST_F(SparseWriter, RunsOfZeroesBecomeHoles) {
    Write(ZeroesOf(kPiece, 0));
    Write(AreaOf(std::string(kPiece, 'a'), kPiece));
    Write(ZeroesOf(kPiece, 2 * kPiece));
    Write(ZeroesOf(kPiece, 3 * kPiece));
    Write(AreaOf(std::string(kPiece, 'b'), 4 * kPiece));
    writer.Finish();
    EXPECT_EQ(ReadFile(path), std::string(kPiece, '\0') + std::string(kPiece, 'a') + std::string(2 * kPiece, '\0') +
                                  std::string(kPiece, 'b'));
    EXPECT_EQ(DataExtentsOf(path), (std::vector<extent_t>{{kPiece, 2 * kPiece}, {4 * kPiece, 5 * kPiece}}));
    EXPECT_EQ(writer.GetPosition(), 5 * kPiece);
}

TEST_F(SparseWriter, HoleAtTheEndExists) {
    Write(AreaOf("abc", 0));
    Write(ZeroesOf(kPiece, 3));
    EXPECT_EQ(file->GetSize(), 3U);
    writer.Finish();
    EXPECT_EQ(ReadFile(path), "abc" + std::string(kPiece, '\0'));
    ASSERT_EQ(DataExtentsOf(path).size(), 1U);
    EXPECT_LT(DataExtentsOf(path).front().end, kPiece);
}

TEST_F(SparseWriter, ZeroBytesThatComeAsDataAreWritten) {
    Write(AreaOf(std::string(kPiece, '\0'), 0));
    writer.Finish();
    EXPECT_EQ(DataExtentsOf(path), (std::vector<extent_t>{{0, kPiece}}));
}

TEST_F(SparseWriter, NothingIsWrittenForAHoleWhateverItsLength) {
    tests::faulty_syscalls_t calls;
    calls.Watch<&posix::syscalls_t::write>();
    calls.Watch<&posix::syscalls_t::pwrite>();
    Write(ZeroesOf(kTiB, 0));
    Write(std::make_shared<bare_hole_t>(kTiB, kTiB));
    EXPECT_EQ(calls.Count<&posix::syscalls_t::write>() + calls.Count<&posix::syscalls_t::pwrite>(), 0);
    EXPECT_EQ(writer.GetPosition(), 2 * kTiB);
    writer.Finish();
    EXPECT_EQ(file->GetSize(), 2 * kTiB);
    EXPECT_EQ(tests::RoomOf(path), 0U);
}

TEST_F(SparseWriter, BareSparseAreaMustFollowToo) {
    EXPECT_NE(FailureOf(std::make_shared<bare_hole_t>(1, 1)), "");
}

TEST_F(SparseWriter, GoesOnBehindTheStartOffset) {
    Write(AreaOf("abc", 0));
    sparse_writer_t second(file, 3);
    second.Write(*ZeroesOf(kPiece, 3));
    second.Write(*AreaOf("def", 3 + kPiece));
    second.Finish();
    EXPECT_EQ(ReadFile(path), "abc" + std::string(kPiece, '\0') + "def");
}

TEST_F(SparseWriter, FilePositionOfSomebodyElseDoesNotMatter) {
    file->Write("old", 3);
    file->SetSize(0);
    Write(AreaOf("new", 0));
    Write(AreaOf("er", 3));
    writer.Finish();
    EXPECT_EQ(ReadFile(path), "newer");
}

TEST_F(SparseWriter, BlockMustBeginWhereTheLastOneEnded) {
    Write(AreaOf("abc", 0));
    const std::string cause =
        "Block offset in source file differs from the current write position in target file. Block offset: [";
    EXPECT_EQ(FailureOf(AreaOf("d", 4)), CannotAppend(3, cause + "4]. Write offset: [3]."));
    EXPECT_EQ(FailureOf(ZeroesOf(1, 2)), CannotAppend(3, cause + "2]. Write offset: [3]."));
    EXPECT_EQ(writer.GetPosition(), 3U);
}

TEST_F(SparseWriter, BlockThatIsNotWhatItSaysIsRefused) {
    const auto area = [](pool::CPoolPtr<io::block::CFibBlock> block) {
        return std::make_shared<io::area::CDataArea>(0, std::move(block));
    };
    EXPECT_EQ(FailureOf(area(tests::OddBlock({0, 0, 3}, "abc", io::block::EBufTransformType::eLz4))),
              CannotAppend(0, "The given block is packed."));
    EXPECT_EQ(FailureOf(area(tests::OddBlock({0, 0, 4}, "abc"))),
              CannotAppend(0,
                           "Declared size of the data and the length of the supplied buffer are different. Declared "
                           "data size: [4]. Buffer length: [3]."));
    EXPECT_EQ(file->GetSize(), 0U);
}

TEST_F(SparseWriter, EncryptedBytesAreKeptAsTheyAre) {
    Write(std::make_shared<io::area::CDataArea>(
        0, tests::OddBlock({0, 0, 3}, "abc", io::block::EBufTransformType::eNone, true)));
    writer.Finish();
    EXPECT_EQ(ReadFile(path), "abc");
}

TEST_F(SparseWriter, BlocksGoBackToTheirPoolOnceTheyAreWritten) {
    const auto data = AreaOf("abc", 0);
    const auto hole = ZeroesOf(3, 3);
    Write(data);
    Write(hole);
    EXPECT_FALSE(data->GetBlock(0));
    EXPECT_FALSE(hole->GetBlock(0));
}

TEST_F(SparseWriter, HoleBeyondTheLargestFileIsRefused) {
    constexpr std::uint64_t kMost = std::numeric_limits<std::int64_t>::max();
    EXPECT_EQ(FailureOf(ZeroesOf(kMost + 1, 0)),
              CannotAppend(0, "Failed to write to file [" + path + "]: File too large"));
    Write(AreaOf("abc", 0));
    EXPECT_NE(FailureOf(ZeroesOf(std::numeric_limits<std::uint64_t>::max(), 3)), "");
    EXPECT_NE(FailureOf(ZeroesOf(kMost - 2, 3)), "");
    EXPECT_EQ(writer.GetPosition(), 3U);
    Write(ZeroesOf(kMost - 3, 3));
    EXPECT_EQ(writer.GetPosition(), kMost);
    EXPECT_NE(FailureOf(ZeroesOf(1, kMost)), "");
}

TEST_F(SparseWriter, InterruptedAndShortWritesGoOn) {
    tests::faulty_syscalls_t calls;
    calls.EndShort<&posix::syscalls_t::write>(2);
    calls.Fail<&posix::syscalls_t::write>(EINTR, 2, 2);
    Write(ZeroesOf(kPiece, 0));
    Write(AreaOf("abcdefg", kPiece));
    writer.Finish();
    EXPECT_EQ(ReadFile(path), std::string(kPiece, '\0') + "abcdefg");
    EXPECT_EQ(calls.Count<&posix::syscalls_t::write>(), 6);
}

TEST_F(SparseWriter, FailedWriteNamesFileAndCause) {
    Write(AreaOf("abc", 0));
    tests::faulty_syscalls_t calls;
    calls.Fail<&posix::syscalls_t::write>(ENOSPC);
    EXPECT_EQ(FailureOf(AreaOf("def", 3)),
              CannotAppend(3, "Failed to write to file [" + path + "]: No space left on device"));
}

TEST_F(SparseWriter, FailedTruncationNamesTheFile) {
    Write(ZeroesOf(kPiece, 0));
    tests::faulty_syscalls_t calls;
    calls.Fail<&posix::syscalls_t::ftruncate>(EFBIG);
    EXPECT_EQ(TextOf([&] { writer.Finish(); }), "Failed to set size of file [" + path + "]: File too large");
}

// A file that was opened rather than made counts as clean until it is changed.
TEST_F(SparseWriter, FinishedFileIsFlushedEvenWhenNothingWasWritten) {
    const auto opened = posix::posix_file_t::Open4Write(path);
    sparse_writer_t second(opened);
    second.Write(*ZeroesOf(kPiece, 0));
    second.Finish();
    tests::faulty_syscalls_t calls;
    calls.Watch<&posix::syscalls_t::fsync>();
    opened->Flush();
    EXPECT_EQ(calls.Count<&posix::syscalls_t::fsync>(), 1);
}

}  // namespace
}  // namespace agent
