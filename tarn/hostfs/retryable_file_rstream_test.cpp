#include "tarn/hostfs/retryable_file_rstream.h"

#include <fstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "mirrowen/exc/runtime_exc.h"
#include "tests/support/caught.h"
#include "tests/support/fake_clock.h"
#include "tests/support/logged.h"
#include "tests/support/open_descriptors.h"
#include "tests/support/syscall_script.h"
#include "tests/support/temp_dir.h"

namespace {

using logging::ELevel;
using std::chrono::milliseconds;
using tarn::hostfs::retryable::CRetryableFileRstream;
using testing::ElementsAre;
using testing::HasSubstr;
using tests::Catch;

class RetryableFileRstreamTest : public testing::Test {
  protected:
    RetryableFileRstreamTest() {
        std::string content;
        for (int i = 0; i != 2000; ++i) {
            content += std::to_string(10000 + i);  // each position has bytes of its own
        }
        std::ofstream(path_) << content;
        stream_ = std::make_unique<CRetryableFileRstream>(path_, true, 3, 250);
    }

    std::string Read(std::uint64_t count) {
        std::string text(count, '?');
        EXPECT_EQ(stream_->ReadExc(text.data(), count), count);
        return text;
    }

    tests::caught_t FailedRead() {
        char bytes[4] = {};
        return Catch([&] { stream_->ReadExc(bytes, 4); });
    }

    milliseconds Slept() const { return std::chrono::duration_cast<milliseconds>(clock_.SteadyNow() - start_); }

    std::string ReadFailure() const { return "Read operation has failed. File: [" + path_ + "]. Size of data: [4]."; }

    // The lines of a level in the library's section.
    static std::vector<std::string> Lines(const tests::log_capture_t& log, ELevel level) {
        std::vector<std::string> lines;
        for (const auto& record : log.Lines()) {
            if (record.level == level && record.section == "fs_log") {
                lines.emplace_back(record.text);
            }
        }
        return lines;
    }

    // After FinishRead, or when a reopen has given up.
    void ExpectClosed() {
        const auto before = Slept();
        const std::string closed = "hostfs read stream was closed";
        const auto read = FailedRead();
        EXPECT_TRUE(read.Is<exc::CRuntimeExc>());
        EXPECT_EQ(read.what, closed);
        EXPECT_EQ(Catch([&] { stream_->GetFileSize(); }).what, closed);
        EXPECT_EQ(Catch([&] { stream_->SeekTo(0); }).what, closed);
        EXPECT_EQ(Catch([&] { stream_->CheckStreamExc(); }).what, closed);
        EXPECT_EQ(Catch([&] { stream_->Reopen(); }).what, closed);
        EXPECT_EQ(stream_->GetPath(), path_);
        EXPECT_EQ(Slept(), before) << "a closed stream fails at once";
    }

    tests::temp_dir_t dir_;
    std::string path_ = dir_ / "file";
    tests::fake_clock_t clock_;
    util::IClock::steady_point_t start_ = clock_.SteadyNow();
    std::unique_ptr<CRetryableFileRstream> stream_;
};

TEST_F(RetryableFileRstreamTest, AMissingFileFailsAtOnce) {
    EXPECT_EQ(Catch([&] { CRetryableFileRstream stream(path_ + "2", true, 3, 250); }).message,
              "Failed to open file [" + path_ + "2] for reading.");
    EXPECT_EQ(Slept(), milliseconds(0));
}

TEST_F(RetryableFileRstreamTest, WithoutFailuresItReadsPlainly) {
    tests::log_capture_t log;
    EXPECT_EQ(stream_->GetPath(), path_);
    EXPECT_EQ(stream_->GetFileSize(), 10000U);
    EXPECT_EQ(Read(5), "10000");
    stream_->SeekTo(5000);
    EXPECT_EQ(Read(5), "11000");
    EXPECT_TRUE(log.Lines().empty());
}

TEST_F(RetryableFileRstreamTest, AReadThatAlwaysFailsIsAttemptedFourTimesAndNumbered) {
    tests::log_capture_t log;
    tests::syscall_script_t calls;
    calls.read.Fail(EIO);
    const auto caught = FailedRead();
    EXPECT_EQ(calls.read.TakeCount(), 4);
    EXPECT_EQ(calls.open.TakeCount(), 3);
    EXPECT_EQ(Slept(), milliseconds(750));
    EXPECT_EQ(caught.message, ReadFailure()) << "the read's own failure, not a wrapper";
    EXPECT_THAT(Lines(log, ELevel::eWarn),
                ElementsAre("ReadExc try 0/3 failed, trying to retry", "ReadExc try 1/3 failed, trying to retry",
                            "ReadExc try 2/3 failed, trying to retry"));
    EXPECT_TRUE(Logged(log, ELevel::eWarn, "ReadExc try 0/3 failed, trying to retry", ReadFailure()));
    EXPECT_TRUE(Logged(log, ELevel::eErr, "ReadExc all tries failed", ReadFailure()));
}

TEST_F(RetryableFileRstreamTest, TheSizeIsRetried) {
    tests::log_capture_t log;
    tests::syscall_script_t calls;
    calls.fstat.Fail(EIO, 0, 1);  // the next one is the reopening's
    EXPECT_EQ(stream_->GetFileSize(), 10000U);
    EXPECT_THAT(Lines(log, ELevel::eWarn), ElementsAre("GetFileSize try 0/3 failed, trying to retry"));
    EXPECT_EQ(Slept(), milliseconds(250));
}

TEST_F(RetryableFileRstreamTest, ASeekIsRetriedAndItsOffsetKeptOnlyOnSuccess) {
    Read(100);
    {
        tests::log_capture_t log;
        tests::syscall_script_t calls;
        calls.lseek.Fail(EIO, 0, 1);
        stream_->SeekTo(5000);
        EXPECT_THAT(Lines(log, ELevel::eWarn), ElementsAre("SeekTo try 0/3 failed, trying to retry"));
        EXPECT_EQ(Read(5), "11000");
    }
    // An offset that no file has fails at every try; the reader stays where it was.
    tests::log_capture_t log;
    Catch([&] { stream_->SeekTo(1ULL << 63); });
    EXPECT_THAT(Lines(log, ELevel::eErr), ElementsAre("SeekTo all tries failed"));
    EXPECT_EQ(Read(5), "11001");
}

TEST_F(RetryableFileRstreamTest, ARetriedReadGoesOnWhereTheReaderWas) {
    Read(100);
    {
        tests::syscall_script_t calls;
        calls.read.Fail(EIO, 0, 2);
        EXPECT_EQ(Read(5), "10020");
    }
    stream_->SeekTo(5000);
    tests::syscall_script_t calls;
    calls.read.Fail(EIO, 0, 1);
    EXPECT_EQ(Read(5), "11000");
    EXPECT_EQ(Read(5), "11001");
}

TEST_F(RetryableFileRstreamTest, WithoutRetriesTheFirstFailureIsFinal) {
    stream_ = std::make_unique<CRetryableFileRstream>(path_, false, 0, 250);
    tests::log_capture_t log;
    tests::syscall_script_t calls;
    calls.read.Fail(EIO);
    EXPECT_EQ(FailedRead().message, ReadFailure());
    EXPECT_EQ(calls.read.TakeCount(), 1);
    EXPECT_EQ(Slept(), milliseconds(0));
    EXPECT_THAT(Lines(log, ELevel::eErr), ElementsAre("ReadExc all tries failed"));
}

TEST_F(RetryableFileRstreamTest, WithNegativeTriesNothingIsAttempted) {
    stream_ = std::make_unique<CRetryableFileRstream>(path_, true, -1, 250);
    tests::syscall_script_t calls;
    const auto read = FailedRead();
    EXPECT_TRUE(read.Is<exc::CRuntimeExc>());
    EXPECT_EQ(read.what, "ReadExc all tries failed");
    EXPECT_EQ(Catch([&] { stream_->GetFileSize(); }).what, "GetFileSize all tries failed");
    EXPECT_EQ(Catch([&] { stream_->SeekTo(0); }).what, "SeekTo all tries failed");
    EXPECT_TRUE(calls.order.empty());
    EXPECT_EQ(Catch([&] { stream_->Reopen(); }).what, "Reopen hostfs all tries failed");
    EXPECT_EQ(calls.open.TakeCount(), 0);
    ExpectClosed();
}

TEST_F(RetryableFileRstreamTest, AReopenThatKeepsFailingEndsTheOperationAndClosesTheStream) {
    {
        tests::syscall_script_t calls;
        calls.read.Fail(EIO);
        calls.open.Fail(EHOSTDOWN);
        const auto caught = FailedRead();
        EXPECT_TRUE(caught.Is<exc::CRuntimeExc>());
        EXPECT_EQ(caught.message, "Failed to reopen hostfs file.");
        EXPECT_THAT(caught.causes,
                    ElementsAre("Failed to open file [" + path_ + "] for reading.", HasSubstr("Host is down")));
        EXPECT_EQ(calls.open.TakeCount(), 4);
        EXPECT_EQ(Slept(), milliseconds(250 + 3 * 250));
    }
    ExpectClosed();
}

TEST_F(RetryableFileRstreamTest, AReopenThatWorksInTheEndGoesOn) {
    Read(100);
    tests::syscall_script_t calls;
    calls.read.Fail(EIO, 0, 1);
    calls.open.Fail(EHOSTDOWN, 0, 3);
    EXPECT_EQ(Read(5), "10020");
    EXPECT_EQ(Slept(), milliseconds(250 + 3 * 250));
}

TEST_F(RetryableFileRstreamTest, AFailedSeekOfTheNewStreamIsRetriedLikeAFailedOpen) {
    Read(100);
    tests::syscall_script_t calls;
    calls.read.Fail(EIO, 0, 1);
    calls.lseek.Fail(EIO, 0, 2);
    EXPECT_EQ(Read(5), "10020");
    EXPECT_EQ(calls.open.TakeCount(), 3);
}

TEST_F(RetryableFileRstreamTest, AFinishedStreamIsClosed) {
    const std::size_t before = tests::OpenDescriptors();
    stream_->FinishRead();
    EXPECT_EQ(tests::OpenDescriptors(), before - 1);
    ExpectClosed();
    stream_->FinishRead();
}

TEST_F(RetryableFileRstreamTest, TheEndOfTheFileIsRetriedLikeAnyFailure) {
    stream_->SeekTo(9998);
    EXPECT_EQ(FailedRead().message, ReadFailure());
    EXPECT_EQ(Slept(), milliseconds(750));
}

}  // namespace
