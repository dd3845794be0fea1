#include "mirrowen/posix/posix_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/caught_error.h"
#include "tests/support/faulty_syscalls.h"
#include "tests/support/temp_dir.h"

namespace {

using posix::posix_file_t;
using posix::syscalls_t;
using tests::CatchError;
using tests::ReadFile;

class PosixFile : public testing::Test {
  protected:
    const tests::temp_dir_t dir_;
    const std::string path_ = dir_ / "file";
};

std::string read_some(posix_file_t& file, std::size_t count) {
    std::string buffer(count, '\0');
    buffer.resize(file.Read(buffer.data(), count));
    return buffer;
}

TEST_F(PosixFile, NewFileHasItsLengthInZeroes) {
    const auto file = posix_file_t::CreateNew(path_, 5);
    EXPECT_EQ(file->GetSize(), 5U);
    EXPECT_EQ(file->GetPath(), path_);
    EXPECT_EQ(read_some(*file, 10), std::string(5, '\0'));
    struct stat info = {};
    ASSERT_EQ(::stat(path_.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777U, 0600U);
}

TEST_F(PosixFile, DescriptorIsClosedOnExecAndAtTheEnd) {
    auto file = posix_file_t::CreateNew(path_, 0);
    const int descriptor = file->GetDescriptor();
    EXPECT_EQ(::fcntl(descriptor, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
    file.reset();
    EXPECT_EQ(::fcntl(descriptor, F_GETFD), -1);
}

TEST_F(PosixFile, ExistingFileIsNotCreatedAnew) {
    tests::WriteFile(path_, "content");
    EXPECT_THAT(CatchError([&] { posix_file_t::CreateNew(path_, 0); }),
                tests::Throws("posix::errno_exc_t", "Failed to create file [" + path_ + "]: File exists"));
    EXPECT_EQ(ReadFile(path_), "content");
}

TEST_F(PosixFile, DanglingLinkIsNotWrittenThrough) {
    std::filesystem::create_symlink(dir_ / "target", path_);
    EXPECT_TRUE(CatchError([&] { posix_file_t::CreateNew(path_, 0); }).thrown);
    EXPECT_FALSE(std::filesystem::exists(dir_ / "target"));
    EXPECT_THAT(CatchError([&] { posix_file_t::Open4Write(path_); }),
                tests::ThrowsText("Failed to open file [" + path_ + "] for writing: No such file or directory"));
}

TEST_F(PosixFile, NewFileIsRemovedWhenItsLengthCannotBeSet) {
    tests::faulty_syscalls_t calls;
    calls.Fail<&syscalls_t::ftruncate>(ENOSPC);
    EXPECT_THAT(CatchError([&] { posix_file_t::CreateNew(path_, 5); }),
                tests::ThrowsText("Failed to set size of file [" + path_ + "]: No space left on device"));
    EXPECT_FALSE(std::filesystem::exists(path_));
}

TEST_F(PosixFile, LengthBeyondTheLargestOffsetIsRefused) {
    EXPECT_THAT(CatchError([&] { posix_file_t::CreateNew(path_, UINT64_MAX); }),
                tests::ThrowsText("Failed to set size of file [" + path_ + "]: File too large"));
    EXPECT_FALSE(std::filesystem::exists(path_));
}

TEST_F(PosixFile, OpeningForWritingKeepsTheContent) {
    tests::WriteFile(path_, "abcdef");
    const auto file = posix_file_t::Open4Write(path_);
    file->Write("XY", 2);
    EXPECT_EQ(ReadFile(path_), "XYcdef");
}

TEST_F(PosixFile, LinkIsOpenedForWritingOnlyWhereLinksAreFollowed) {
    tests::WriteFile(dir_ / "target", "abc");
    std::filesystem::create_symlink(dir_ / "target", path_);
    posix_file_t::Open4Write(path_)->Write("X", 1);
    EXPECT_EQ(ReadFile(dir_ / "target"), "Xbc");
    EXPECT_THAT(CatchError([&] { posix_file_t::Open4Write(path_, false); }),
                tests::Throws("posix::errno_exc_t",
                              "Failed to open file [" + path_ + "] for writing: Too many levels of symbolic links"));
    posix_file_t::Open4Write(dir_ / "target", false)->Write("Y", 1);
    EXPECT_EQ(ReadFile(dir_ / "target"), "Ybc");
}

TEST_F(PosixFile, OpenedOrCreatedFileHoldsOnlyWhatIsWritten) {
    tests::WriteFile(path_, "something longer");
    posix_file_t::OpenOrCreate4Write(path_, false, 0)->Write("new", 3);
    EXPECT_EQ(ReadFile(path_), "new");
    posix_file_t::OpenOrCreate4Write(path_, false, 5);
    EXPECT_EQ(ReadFile(path_), std::string(5, '\0'));
}

TEST_F(PosixFile, OpenedOrCreatedFileIsMadeWhenMissing) {
    posix_file_t::OpenOrCreate4Write(path_, false, 2);
    EXPECT_EQ(ReadFile(path_), std::string(2, '\0'));
    struct stat info = {};
    ASSERT_EQ(::stat(path_.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777U, 0600U);
    EXPECT_THAT(CatchError([&] { posix_file_t::OpenOrCreate4Write(dir_ / "none/file", false, 0); }),
                tests::Throws("posix::errno_exc_t", "Failed to open file [" + (dir_ / "none/file") +
                                                        "] for writing: No such file or directory"));
    tests::faulty_syscalls_t calls;
    calls.Fail<&syscalls_t::ftruncate>(EIO);
    EXPECT_THAT(CatchError([&] { posix_file_t::OpenOrCreate4Write(path_, false, 0); }),
                tests::ThrowsText("Failed to set size of file [" + path_ + "]: Input/output error"));
}

TEST_F(PosixFile, LockedFileIsSparedByOthersThatLock) {
    const std::string refusal = "Failed to lock file [" + path_ + "]: Resource temporarily unavailable";
    auto writer = posix_file_t::OpenOrCreate4Write(path_, true, 0);
    writer->Write("mine", 4);
    EXPECT_THAT(CatchError([&] { posix_file_t::OpenOrCreate4Write(path_, true, 0); }), tests::ThrowsText(refusal));
    EXPECT_THAT(CatchError([&] { posix_file_t::Open4Read(path_, true); }), tests::ThrowsText(refusal));
    EXPECT_EQ(read_some(*posix_file_t::Open4Read(path_), 10), "mine");
    writer.reset();
    const auto reader = posix_file_t::Open4Read(path_, true);
    EXPECT_EQ(read_some(*posix_file_t::Open4Read(path_, true), 10), "mine");
    EXPECT_THAT(CatchError([&] { posix_file_t::OpenOrCreate4Write(path_, true, 0); }), tests::ThrowsText(refusal));
    EXPECT_EQ(read_some(*reader, 10), "mine");
}

TEST_F(PosixFile, MissingFileIsNamed) {
    const auto caught = CatchError([&] { posix_file_t::Open4Read(path_); });
    EXPECT_THAT(caught, tests::Throws("posix::errno_exc_t",
                                      "Failed to open file [" + path_ + "] for reading: No such file or directory"));
}

TEST_F(PosixFile, DirectoryIsNotReadAsAFile) {
    EXPECT_THAT(CatchError([&] { posix_file_t::Open4Read(dir_.path()); }),
                tests::ThrowsText("Failed to open file [" + dir_.path() + "] for reading: Is a directory"));
}

TEST_F(PosixFile, SeeksMoveThePosition) {
    tests::WriteFile(path_, "0123456789");
    const auto file = posix_file_t::Open4Read(path_);
    file->SeekFromBegin(3);
    file->SeekFromCurr(2);
    EXPECT_EQ(file->GetPosition(), 5U);
    EXPECT_EQ(read_some(*file, 2), "56");
    EXPECT_EQ(read_some(*file, 10), "789");
    EXPECT_EQ(read_some(*file, 10), "");
    EXPECT_THAT(CatchError([&] { file->SeekFromBegin(UINT64_MAX); }),
                tests::ThrowsText("Failed to seek in file [" + path_ + "]: Value too large for defined data type"));
}

TEST_F(PosixFile, SetSizeCutsAndExtendsAndLeavesThePosition) {
    tests::WriteFile(path_, "abcdef");
    const auto file = posix_file_t::Open4Write(path_);
    file->SeekFromBegin(4);
    file->SetSize(2);
    EXPECT_EQ(ReadFile(path_), "ab");
    file->SetSize(4);
    EXPECT_EQ(ReadFile(path_), std::string("ab\0\0", 4));
    EXPECT_EQ(file->GetPosition(), 4U);
}

TEST_F(PosixFile, InterruptedCallsAreRepeated) {
    tests::WriteFile(path_, "abc");
    tests::faulty_syscalls_t calls;
    calls.Fail<&syscalls_t::open>(EINTR, 1, 2);
    calls.Fail<&syscalls_t::fstat>(EINTR);
    calls.Fail<&syscalls_t::read>(EINTR, 1, 3);
    calls.Fail<&syscalls_t::write>(EINTR, 1, 3);
    calls.Fail<&syscalls_t::lseek>(EINTR);
    calls.Fail<&syscalls_t::ftruncate>(EINTR);
    calls.Fail<&syscalls_t::fsync>(EINTR);
    const auto file = posix_file_t::Open4Write(path_);
    EXPECT_EQ(read_some(*file, 3), "abc");
    file->Write("def", 3);
    EXPECT_EQ(file->GetPosition(), 6U);
    EXPECT_EQ(file->GetSize(), 6U);
    file->SetSize(5);
    file->Flush();
    EXPECT_EQ(ReadFile(path_), "abcde");
    EXPECT_EQ(calls.Count<&syscalls_t::fsync>(), 2);
}

TEST_F(PosixFile, ShortCallsAreContinued) {
    tests::faulty_syscalls_t calls;
    calls.EndShort<&syscalls_t::read>(3);
    calls.EndShort<&syscalls_t::write>(2);
    const auto file = posix_file_t::CreateNew(path_, 0);
    file->Write("abcdefg", 7);
    EXPECT_EQ(calls.Count<&syscalls_t::write>(), 4);
    file->SeekFromBegin(0);
    EXPECT_EQ(read_some(*file, 7), "abcdefg");
    EXPECT_EQ(calls.Count<&syscalls_t::read>(), 3);
}

TEST_F(PosixFile, EndOfFileStopsTheLoopOfShortReads) {
    tests::WriteFile(path_, "abcde");
    tests::faulty_syscalls_t calls;
    calls.EndShort<&syscalls_t::read>(3);
    EXPECT_EQ(read_some(*posix_file_t::Open4Read(path_), 100), "abcde");
}

TEST_F(PosixFile, FailuresInTheMiddleAreThrown) {
    tests::WriteFile(path_, "abc");
    tests::faulty_syscalls_t calls;
    const auto file = posix_file_t::Open4Write(path_);
    calls.Fail<&syscalls_t::read>(EIO);
    calls.Fail<&syscalls_t::write>(ENOSPC);
    EXPECT_THAT(CatchError([&] { read_some(*file, 3); }),
                tests::ThrowsText("Failed to read from file [" + path_ + "]: Input/output error"));
    EXPECT_THAT(CatchError([&] { file->Write("x", 1); }),
                tests::ThrowsText("Failed to write to file [" + path_ + "]: No space left on device"));
}

TEST_F(PosixFile, FileThatTakesNothingIsAFailure) {
    tests::faulty_syscalls_t calls;
    calls.EndShort<&syscalls_t::write>(0);
    const auto file = posix_file_t::CreateNew(path_, 0);
    EXPECT_THAT(CatchError([&] { file->Write("x", 1); }),
                tests::ThrowsText("Failed to write to file [" + path_ + "]: Input/output error"));
}

std::vector<std::size_t> g_pieces;

ssize_t take_all(int /*fd*/, const void* /*buffer*/, std::size_t count) {
    g_pieces.push_back(count);
    return static_cast<ssize_t>(count);
}

ssize_t give_all(int /*fd*/, void* /*buffer*/, std::size_t count) {
    g_pieces.push_back(count);
    return static_cast<ssize_t>(count);
}

TEST_F(PosixFile, LargeCountsAreCutIntoPiecesOfASystemCall) {
    constexpr std::size_t count = std::size_t{5} << 30;
    const std::vector<std::size_t> expected = {2147483647, 2147483647, 1073741826};
    tests::faulty_syscalls_t calls;
    calls.Table().write = take_all;
    calls.Table().read = give_all;
    const auto file = posix_file_t::CreateNew(path_, 0);
    char byte = 0;  // the replaced calls look at no buffer
    g_pieces.clear();
    file->Write(&byte, count);
    EXPECT_EQ(g_pieces, expected);
    g_pieces.clear();
    EXPECT_EQ(file->Read(&byte, count), count);
    EXPECT_EQ(g_pieces, expected);
}

TEST_F(PosixFile, FlushSkipsTheCallWhenNothingChanged) {
    tests::WriteFile(path_, "abc");
    tests::faulty_syscalls_t calls;
    calls.Watch<&syscalls_t::fsync>();
    const auto file = posix_file_t::Open4Write(path_);
    const auto flushes = [&] {
        file->Flush();
        return calls.Count<&syscalls_t::fsync>();
    };
    EXPECT_EQ(flushes(), 0);
    file->Write("x", 1);
    EXPECT_EQ(flushes(), 1);
    EXPECT_EQ(flushes(), 1);
    file->SetSize(2);
    EXPECT_EQ(flushes(), 2);
    file->Write("", 0);
    EXPECT_EQ(flushes(), 2);
}

TEST_F(PosixFile, NewFileIsFlushedThoughNothingWasWritten) {
    tests::faulty_syscalls_t calls;
    calls.Watch<&syscalls_t::fsync>();
    posix_file_t::CreateNew(path_, 0)->Flush();
    EXPECT_EQ(calls.Count<&syscalls_t::fsync>(), 1);
}

TEST_F(PosixFile, FailedFlushIsRememberedAndNeverTriedAgain) {
    tests::faulty_syscalls_t calls;
    calls.Fail<&syscalls_t::fsync>(EIO);
    const auto file = posix_file_t::CreateNew(path_, 0);
    for (int i = 0; i < 3; ++i) {
        file->Write("x", 1);
        EXPECT_THAT(CatchError([&] { file->Flush(); }),
                    tests::Throws("posix::errno_exc_t", "Failed to flush file [" + path_ + "]: Input/output error"));
    }
    EXPECT_EQ(calls.Count<&syscalls_t::fsync>(), 1);
}

}  // namespace
