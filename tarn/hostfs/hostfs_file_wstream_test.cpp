#include "tarn/hostfs/hostfs_file_wstream.h"

#include <sys/mman.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "mirrowen/exc/already_exists_exc.h"
#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/posix/errno_exc.h"
#include "tests/support/caught.h"
#include "tests/support/logged.h"
#include "tests/support/open_descriptors.h"
#include "tests/support/syscall_script.h"
#include "tests/support/temp_dir.h"

namespace {

using logging::ELevel;
using tarn::hostfs::hostfs_file_wstream_t;
using testing::ElementsAre;
using testing::HasSubstr;
using tests::Catch;
using tests::Logged;

// Slots and base are the interface's; the stream is made by its own functions only.
static_assert(std::is_base_of_v<tarn::file_wstream_t, hostfs_file_wstream_t>);
static_assert(std::is_constructible_v<hostfs_file_wstream_t, std::shared_ptr<posix::posix_file_t>, std::uint64_t>);

class HostfsFileWstreamTest : public testing::Test {
  protected:
    std::string Path(const std::string& name = "file") const { return dir_ / "" + name; }

    void Put(const std::string& content, const std::string& name = "file") const {
        std::ofstream(Path(name), std::ios::binary) << content;
    }
    std::string Get(const std::string& name = "file") const {
        std::ifstream in(Path(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }

    tests::temp_dir_t dir_;
};

TEST_F(HostfsFileWstreamTest, CreatingMakesAFileOfTheLengthAndLogsBothEnds) {
    tests::log_capture_t log;
    const auto stream = hostfs_file_wstream_t::CreateNew(Path(), 1000, false, true);
    EXPECT_EQ(Get(), std::string(1000, '\0'));
    EXPECT_EQ(stream->GetPath(), Path());
    EXPECT_TRUE(Logged(log, ELevel::eTrace, "Creating output stream for [" + Path() + "]..."));
    EXPECT_TRUE(Logged(log, ELevel::eTrace, "Output stream was successfully created."));
}

TEST_F(HostfsFileWstreamTest, CreatingWhereAFileIsIsRefusedAndSparesIt) {
    Put("old");
    const auto caught = Catch([&] { hostfs_file_wstream_t::CreateNew(Path(), 10, false, true); });
    EXPECT_TRUE(caught.Is<exc::CAlreadyExistsExc>());
    EXPECT_EQ(caught.what, "File already exists in hostfs_file_wstream_t::CreateNew()");
    EXPECT_EQ(Get(), "old");
}

TEST_F(HostfsFileWstreamTest, AFileThatAppearsWhileItIsCreatedCountsAsExisting) {
    tests::syscall_script_t calls;
    calls.open.Fail(EEXIST);
    const auto kept = Catch([&] { hostfs_file_wstream_t::CreateNew(Path(), 10, false, true); });
    EXPECT_TRUE(kept.Is<exc::CAlreadyExistsExc>());
    EXPECT_EQ(kept.what, "File already exists in hostfs_file_wstream_t::CreateNew()");
    const auto replaced = Catch([&] { hostfs_file_wstream_t::CreateNew(Path(), 10, true, true); });
    EXPECT_EQ(replaced.message, "Failed to create file [" + Path() + "].");
    EXPECT_THAT(replaced.causes, ElementsAre(HasSubstr("File exists")));
}

TEST_F(HostfsFileWstreamTest, CreatingWithOverwriteDeletesFirstAndSaysSo) {
    Put("old content");
    tests::log_capture_t log;
    hostfs_file_wstream_t::CreateNew(Path(), 3, true, true);
    EXPECT_EQ(Get(), std::string(3, '\0'));
    EXPECT_TRUE(Logged(log, ELevel::eInfo, "There is file [" + Path() + "]. It will be removed."));
}

TEST_F(HostfsFileWstreamTest, CreatingWithOverwriteReplacesALinkAndNotItsTarget) {
    Put("target", "target");
    std::filesystem::create_symlink("target", Path());
    hostfs_file_wstream_t::CreateNew(Path(), 3, true, true);
    EXPECT_FALSE(std::filesystem::is_symlink(Path()));
    EXPECT_EQ(Get("target"), "target");
}

TEST_F(HostfsFileWstreamTest, CreatingInAMissingDirectoryTellsWhy) {
    tests::log_capture_t log;
    const auto caught = Catch([&] { hostfs_file_wstream_t::CreateNew(Path("dir/file"), 10, false, true); });
    EXPECT_TRUE(caught.Is<exc::CRuntimeExc>());
    EXPECT_EQ(caught.message, "Failed to create file [" + Path("dir/file") + "].");
    EXPECT_THAT(caught.causes, ElementsAre(HasSubstr("No such file or directory")));
    EXPECT_TRUE(Logged(log, ELevel::eTrace, "Failed: Creating output stream for [" + Path("dir/file") + "]..."));
    EXPECT_FALSE(Logged(log, ELevel::eTrace, "Output stream was successfully created."));
}

TEST_F(HostfsFileWstreamTest, CreatingOverADirectoryWithContentIsRefused) {
    std::filesystem::create_directories(Path() + "/inner");
    EXPECT_EQ(Catch([&] { hostfs_file_wstream_t::CreateNew(Path(), 10, true, true); }).message,
              "Failed to create file [" + Path() + "].");
    EXPECT_TRUE(std::filesystem::is_directory(Path() + "/inner"));
}

TEST_F(HostfsFileWstreamTest, AFileThatCannotGetItsLengthIsNotLeftBehind) {
    tests::syscall_script_t calls;
    calls.ftruncate.Fail(ENOSPC);
    const auto caught = Catch([&] { hostfs_file_wstream_t::CreateNew(Path(), 10, false, true); });
    EXPECT_EQ(caught.message, "Failed to create file [" + Path() + "].");
    EXPECT_THAT(caught.causes, ElementsAre(HasSubstr("No space left on device")));
    EXPECT_FALSE(std::filesystem::exists(Path()));
}

TEST_F(HostfsFileWstreamTest, OpeningAnExistingFileKeepsContentAndLengthAndLogsNothing) {
    Put("0123456789");
    tests::log_capture_t log;
    const auto stream = hostfs_file_wstream_t::OpenExisting(Path(), nullptr, nullptr);
    EXPECT_EQ(stream->WriteExc("AB", 2), 2U);
    stream->Close(nullptr);
    EXPECT_EQ(Get(), "AB23456789");
    EXPECT_EQ(log.Lines().size(), 0U);
}

TEST_F(HostfsFileWstreamTest, OpeningAFileOfAnotherLengthThanExpectedIsRefusedUnwrapped) {
    Put("0123456789");
    tests::log_capture_t log;
    const std::uint64_t expected = 11;
    const auto caught = Catch([&] { hostfs_file_wstream_t::OpenExisting(Path(), &expected, nullptr); });
    EXPECT_TRUE(caught.Is<exc::CRuntimeExc>());
    EXPECT_EQ(caught.what, "The actual length [10] of the file [" + Path() + "] differs from the expected [11].");
    EXPECT_TRUE(Logged(log, ELevel::eTrace, "Failed: Opening file stream for existing file [" + Path() + "]"));
}

TEST_F(HostfsFileWstreamTest, OpeningAFileOfTheExpectedLengthWorks) {
    Put("0123456789");
    const std::uint64_t expected = 10;
    EXPECT_NO_THROW(hostfs_file_wstream_t::OpenExisting(Path(), &expected, nullptr));
}

TEST_F(HostfsFileWstreamTest, OpeningAnExistingFileThatIsMissingTellsWhy) {
    tests::log_capture_t log;
    const auto caught = Catch([&] { hostfs_file_wstream_t::OpenExisting(Path(), nullptr, nullptr); });
    EXPECT_TRUE(caught.Is<exc::CRuntimeExc>());
    EXPECT_EQ(caught.message, "Failed to open file [" + Path() + "].");
    EXPECT_THAT(caught.causes, ElementsAre(HasSubstr("No such file or directory")));
    EXPECT_TRUE(Logged(log, ELevel::eTrace, "Failed: Opening file stream for existing file [" + Path() + "]"));
}

TEST_F(HostfsFileWstreamTest, ASizeThatCannotBeReadCountsAsAFailedOpening) {
    Put("0123456789");
    tests::syscall_script_t calls;
    calls.fstat.Fail(EIO);
    const std::uint64_t expected = 10;
    EXPECT_EQ(Catch([&] { hostfs_file_wstream_t::OpenExisting(Path(), &expected, nullptr); }).message,
              "Failed to open file [" + Path() + "].");
}

TEST_F(HostfsFileWstreamTest, ResizingOnOpeningTruncatesAndExtends) {
    Put("0123456789");
    tests::log_capture_t log;
    hostfs_file_wstream_t::OpenExistingAndResize(Path(), 4);
    EXPECT_EQ(Get(), "0123");
    hostfs_file_wstream_t::OpenExistingAndResize(Path(), 6);
    EXPECT_EQ(Get(), std::string("0123\0\0", 6));
    EXPECT_EQ(log.Lines().size(), 0U);
}

TEST_F(HostfsFileWstreamTest, ResizingAMissingFileTellsWhy) {
    tests::log_capture_t log;
    const auto caught = Catch([&] { hostfs_file_wstream_t::OpenExistingAndResize(Path(), 42); });
    EXPECT_TRUE(caught.Is<exc::CRuntimeExc>());
    EXPECT_EQ(caught.message, "Failed to open file [" + Path() + "].");
    EXPECT_THAT(caught.causes, ElementsAre(HasSubstr("No such file or directory")));
    EXPECT_TRUE(Logged(
        log, ELevel::eTrace,
        "Failed: Opening  existing file for update [" + Path() + "]. Requested length of the file is [42] bytes"));
    EXPECT_FALSE(std::filesystem::exists(Path()));
}

TEST_F(HostfsFileWstreamTest, ALengthThatCannotBeSetCountsAsAFailedOpening) {
    Put("0123456789");
    tests::syscall_script_t calls;
    calls.ftruncate.Fail(EFBIG);
    EXPECT_EQ(Catch([&] { hostfs_file_wstream_t::OpenExistingAndResize(Path(), 42); }).message,
              "Failed to open file [" + Path() + "].");
}

TEST_F(HostfsFileWstreamTest, ABigWriteIsIssuedInPiecesThatOneCallTakes) {
    constexpr std::uint64_t kCount = 5ULL << 30;
    void* const buffer = mmap(nullptr, kCount, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    ASSERT_NE(buffer, MAP_FAILED);
    const auto stream = hostfs_file_wstream_t::CreateNew(Path(), 0, false, true);
    {
        tests::syscall_script_t calls;
        calls.swallowWrites = true;
        EXPECT_EQ(stream->WriteExc(buffer, kCount), kCount);
        EXPECT_THAT(calls.writeCounts, ElementsAre(2147483647U, 2147483647U, kCount - 2 * 2147483647ULL));
        calls.writeCounts.clear();
        EXPECT_EQ(stream->WriteExc(buffer, 2147483647U), 2147483647U);
        EXPECT_THAT(calls.writeCounts, ElementsAre(2147483647U)) << "no call for a remainder of nothing";
        calls.writeCounts.clear();
        EXPECT_EQ(stream->WriteExc(buffer, 0), 0U);
        EXPECT_THAT(calls.writeCounts, ElementsAre());
    }
    munmap(buffer, kCount);
}

TEST_F(HostfsFileWstreamTest, AWriteToAFullDiskFailsWithSizeAndReason) {
    const auto stream = hostfs_file_wstream_t::CreateNew(Path(), 0, false, true);
    tests::syscall_script_t calls;
    calls.write.Fail(ENOSPC, 2);
    stream->WriteExc("0123", 4);
    stream->WriteExc("4567", 4);
    const auto caught = Catch([&] { stream->WriteExc("89", 2); });
    EXPECT_TRUE(caught.Is<exc::CRuntimeExc>());
    EXPECT_EQ(caught.message, "Write operation has failed. File [" + Path() + "]. Size of data: [2].");
    EXPECT_THAT(caught.causes, ElementsAre(HasSubstr("No space left on device")));
    stream->Close(nullptr);
    EXPECT_EQ(Get(), "01234567");
}

TEST_F(HostfsFileWstreamTest, WritingGoesOnAfterADiskHasRoomAgain) {
    const auto stream = hostfs_file_wstream_t::CreateNew(Path(), 0, false, true);
    tests::syscall_script_t calls;
    calls.write.Fail(ENOSPC, 0, 1);
    Catch([&] { stream->WriteExc("0123", 4); });
    EXPECT_EQ(stream->WriteExc("0123", 4), 4U);
    stream->Close(nullptr);
    EXPECT_EQ(Get(), "0123");
}

TEST_F(HostfsFileWstreamTest, AWriteInAVanishedDirectoryStillReachesTheOpenFile) {
    std::filesystem::create_directory(Path("dir"));
    const auto stream = hostfs_file_wstream_t::CreateNew(Path("dir/file"), 4, false, true);
    std::filesystem::remove_all(Path("dir"));
    EXPECT_EQ(stream->WriteExc("0123", 4), 4U);
    EXPECT_NO_THROW(stream->Close(nullptr));
    EXPECT_EQ(Catch([&] { hostfs_file_wstream_t::OpenExisting(Path("dir/file"), nullptr, nullptr); }).message,
              "Failed to open file [" + Path("dir/file") + "].");
}

TEST_F(HostfsFileWstreamTest, FlushMakesTheFileDurable) {
    const auto stream = hostfs_file_wstream_t::CreateNew(Path(), 0, false, true);
    tests::syscall_script_t calls;
    stream->WriteExc("0123", 4);
    stream->Flush();
    EXPECT_EQ(calls.fsync.TakeCount(), 1);
}

TEST_F(HostfsFileWstreamTest, AFailedFlushNamesTheFile) {
    auto stream = hostfs_file_wstream_t::CreateNew(Path(), 4, false, true);
    tests::syscall_script_t calls;
    calls.fsync.Fail(EIO);
    const auto caught = Catch([&] { stream->Flush(); });
    EXPECT_TRUE(caught.Is<exc::CRuntimeExc>());
    EXPECT_EQ(caught.message, "Unable to flush file buffers. File: [" + Path() + "].");
    EXPECT_THAT(caught.causes, ElementsAre(HasSubstr("Input/output error")));
}

TEST_F(HostfsFileWstreamTest, AFlushThatFailsInCloseIsTriedAgainByTheDestructorAndLogged) {
    auto stream = hostfs_file_wstream_t::CreateNew(Path(), 4, false, true);
    tests::syscall_script_t calls;
    calls.fsync.Fail(EIO);
    EXPECT_EQ(Catch([&] { stream->Close(nullptr); }).message, "Unable to flush file buffers. File: [" + Path() + "].");
    tests::log_capture_t log;
    stream.reset();
    EXPECT_TRUE(Logged(log, ELevel::eErr, "Failed to close hostfs file stream", "Unable to flush file buffers."));
}

TEST_F(HostfsFileWstreamTest, DestroyingAStreamWhoseFlushFailsIsOnlyLogged) {
    auto stream = hostfs_file_wstream_t::CreateNew(Path(), 4, false, true);
    tests::syscall_script_t calls;
    calls.fsync.Fail(EIO);
    tests::log_capture_t log;
    EXPECT_NO_THROW(stream.reset());
    EXPECT_TRUE(Logged(log, ELevel::eErr, "Failed to close hostfs file stream", "Input/output error"));
}

TEST_F(HostfsFileWstreamTest, CloseFlushesAndReleasesTheDescriptor) {
    const std::size_t before = tests::OpenDescriptors();
    const auto stream = hostfs_file_wstream_t::CreateNew(Path(), 4, false, true);
    EXPECT_EQ(tests::OpenDescriptors(), before + 1);
    tests::syscall_script_t calls;
    stream->Close(nullptr);
    EXPECT_EQ(calls.fsync.TakeCount(), 1);
    EXPECT_EQ(tests::OpenDescriptors(), before);
    stream->Close(nullptr);
    stream->Flush();
    EXPECT_EQ(calls.fsync.TakeCount(), 0);
}

TEST_F(HostfsFileWstreamTest, EveryOperationOnTheFileFailsAfterClose) {
    const auto stream = hostfs_file_wstream_t::CreateNew(Path(), 100, false, true);
    stream->Close(nullptr);
    const std::string closed = "The stream of file [" + Path() + "] is closed.";
    const auto write = Catch([&] { stream->WriteExc("0123", 4); });
    EXPECT_EQ(write.message, "Write operation has failed. File [" + Path() + "]. Size of data: [4].");
    EXPECT_THAT(write.causes, ElementsAre(closed));
    const auto skip = Catch([&] { stream->WriteZeroes(10); });
    EXPECT_EQ(skip.message, "Failed to write sparse block to the file.");
    EXPECT_THAT(skip.causes, ElementsAre(closed));
    EXPECT_EQ(Catch([&] { stream->WriteZeroes(100); }).message,
              "Write operation has failed. File [" + Path() + "]. Size of data: [100].");
    EXPECT_EQ(Catch([&] { stream->SeekTo(0); }).message, closed);
    EXPECT_EQ(stream->GetPath(), Path());
}

// Counts its own flushes, and can refuse them.
class flush_counter_t final : public hostfs_file_wstream_t {
  public:
    using hostfs_file_wstream_t::hostfs_file_wstream_t;
    ~flush_counter_t() override = default;
    void Flush() override { ++flushes; }
    int flushes = 0;
};

TEST_F(HostfsFileWstreamTest, CloseRunsTheFlushOfADerivedStream) {
    flush_counter_t stream(posix::posix_file_t::CreateNew(Path(), 4), 4);
    tests::syscall_script_t calls;
    stream.Close(nullptr);
    EXPECT_EQ(stream.flushes, 1);
    EXPECT_EQ(calls.fsync.TakeCount(), 0);
}

}  // namespace
