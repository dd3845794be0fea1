#include "tarn/hostfs/hostfs_file_rstream.h"

#include <filesystem>
#include <fstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "mirrowen/exc/runtime_exc.h"
#include "tests/support/caught.h"
#include "tests/support/logged.h"
#include "tests/support/open_descriptors.h"
#include "tests/support/syscall_script.h"
#include "tests/support/temp_dir.h"

namespace {

using logging::ELevel;
using tarn::hostfs::hostfs_file_rstream_t;
using testing::ElementsAre;
using testing::HasSubstr;
using tests::Catch;
using tests::Logged;

static_assert(std::is_base_of_v<tarn::file_rstream_t, hostfs_file_rstream_t>);

class HostfsFileRstreamTest : public testing::Test {
  protected:
    HostfsFileRstreamTest() { std::ofstream(path_) << "0123456789"; }

    std::string Read(hostfs_file_rstream_t& stream, std::size_t count) const {
        std::string text(count, '?');
        EXPECT_EQ(stream.ReadExc(text.data(), count), count);
        return text;
    }

    tests::temp_dir_t dir_;
    std::string path_ = dir_ / "file";
};

TEST_F(HostfsFileRstreamTest, OpeningLogsBothEnds) {
    tests::log_capture_t log;
    hostfs_file_rstream_t stream(path_);
    EXPECT_TRUE(Logged(log, ELevel::eTrace, "Opening file [" + path_ + "] for reading."));
    EXPECT_TRUE(Logged(log, ELevel::eTrace, "File [" + path_ + "] was opened."));
}

TEST_F(HostfsFileRstreamTest, AMissingFileIsReportedWithItsReason) {
    tests::log_capture_t log;
    const auto caught = Catch([&] { hostfs_file_rstream_t stream(path_ + "2"); });
    EXPECT_TRUE(caught.Is<exc::CRuntimeExc>());
    EXPECT_EQ(caught.message, "Failed to open file [" + path_ + "2] for reading.");
    EXPECT_THAT(caught.causes, ElementsAre(HasSubstr("No such file or directory")));
    EXPECT_TRUE(Logged(log, ELevel::eTrace, "Failed: Opening file [" + path_ + "2] for reading."));
}

TEST_F(HostfsFileRstreamTest, ADirectoryIsNotOpened) {
    const std::string dir = dir_.path();
    const auto caught = Catch([&] { hostfs_file_rstream_t stream(dir); });
    EXPECT_EQ(caught.message, "Failed to open file [" + dir + "] for reading.");
    EXPECT_THAT(caught.causes, ElementsAre(HasSubstr("Is a directory")));
}

TEST_F(HostfsFileRstreamTest, PathSizeAndPosition) {
    hostfs_file_rstream_t stream(path_);
    EXPECT_EQ(stream.GetPath(), path_);
    EXPECT_EQ(stream.GetFileSize(), 10U);
    EXPECT_EQ(Read(stream, 3), "012");
    stream.SeekTo(8);
    EXPECT_EQ(Read(stream, 2), "89");
    stream.SeekTo(1);
    EXPECT_EQ(Read(stream, 2), "12");
}

TEST_F(HostfsFileRstreamTest, TheSizeFollowsAWriter) {
    hostfs_file_rstream_t stream(path_);
    std::ofstream(path_, std::ios::app) << "more";
    EXPECT_EQ(stream.GetFileSize(), 14U);
}

TEST_F(HostfsFileRstreamTest, AShortReadThrows) {
    hostfs_file_rstream_t stream(path_);
    std::string text(11, '?');
    const auto caught = Catch([&] { stream.ReadExc(text.data(), 11); });
    EXPECT_TRUE(caught.Is<exc::CRuntimeExc>());
    EXPECT_EQ(caught.message, "Read operation has failed. File: [" + path_ + "]. Size of data: [11].");
    EXPECT_THAT(caught.causes, ElementsAre("The file ended after [10] bytes."));
}

TEST_F(HostfsFileRstreamTest, AFailedReadThrowsWithItsReason) {
    hostfs_file_rstream_t stream(path_);
    tests::syscall_script_t calls;
    calls.read.Fail(EIO);
    std::string text(4, '?');
    const auto caught = Catch([&] { stream.ReadExc(text.data(), 4); });
    EXPECT_EQ(caught.message, "Read operation has failed. File: [" + path_ + "]. Size of data: [4].");
    EXPECT_THAT(caught.causes, ElementsAre(HasSubstr("Input/output error")));
}

TEST_F(HostfsFileRstreamTest, AnInterruptedReadGoesOn) {
    hostfs_file_rstream_t stream(path_);
    tests::syscall_script_t calls;
    calls.read.Fail(EINTR, 0, 3);
    EXPECT_EQ(Read(stream, 10), "0123456789");
}

TEST_F(HostfsFileRstreamTest, FinishingReleasesTheFileAndEndsEverythingButThePath) {
    const std::size_t before = tests::OpenDescriptors();
    for (const bool withoutWriteShare : {false, true}) {
        hostfs_file_rstream_t stream(path_, withoutWriteShare);
        EXPECT_EQ(tests::OpenDescriptors(), before + 1);
        stream.FinishRead();
        EXPECT_EQ(tests::OpenDescriptors(), before) << "the lock keeps the file open";
        stream.FinishRead();
        const std::string closed = "The stream of file [" + path_ + "] is closed.";
        char byte = 0;
        const auto read = Catch([&] { stream.ReadExc(&byte, 1); });
        EXPECT_EQ(read.message, "Read operation has failed. File: [" + path_ + "]. Size of data: [1].");
        EXPECT_THAT(read.causes, ElementsAre(closed));
        EXPECT_EQ(Catch([&] { stream.GetFileSize(); }).message, closed);
        EXPECT_EQ(Catch([&] { stream.SeekTo(0); }).message, closed);
        EXPECT_EQ(stream.GetPath(), path_);
    }
}

TEST_F(HostfsFileRstreamTest, TheDestructorReleasesAFileThatWasNotFinished) {
    const std::size_t before = tests::OpenDescriptors();
    { const hostfs_file_rstream_t stream(path_, true); }
    EXPECT_EQ(tests::OpenDescriptors(), before);
}

}  // namespace
