#include "tarn/hostfs/retryable_hostfs_file_rstream.h"

#include <filesystem>
#include <fstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/util/clock.h"
#include "tests/support/caught.h"
#include "tests/support/fake_clock.h"
#include "tests/support/logged.h"
#include "tests/support/open_descriptors.h"
#include "tests/support/syscall_script.h"
#include "tests/support/temp_dir.h"

namespace {

using std::chrono::seconds;
using tarn::hostfs::retryable_hostfs_file_rstream_t;
using testing::ElementsAre;
using testing::HasSubstr;
using tests::Catch;

class RetryableHostfsFileRstreamTest : public testing::Test {
  protected:
    RetryableHostfsFileRstreamTest() {
        std::ofstream(path_) << MakeContent();
        stream_ = std::make_unique<retryable_hostfs_file_rstream_t>(path_, 3);
    }

    // Each position has bytes of its own.
    static std::string MakeContent() {
        std::string content;
        for (int i = 0; i != 2000; ++i) {
            content += std::to_string(10000 + i);
        }
        return content;
    }

    std::string Read(std::uint64_t count) {
        std::string text(count, '?');
        EXPECT_EQ(stream_->ReadExc(text.data(), count), count);
        return text;
    }

    tests::caught_t FailedRead(std::uint64_t count = 4) {
        std::string text(count, '?');
        return Catch([&] { stream_->ReadExc(text.data(), count); });
    }

    seconds Slept() const { return std::chrono::duration_cast<seconds>(clock_.SteadyNow() - start_); }

    std::string ReadFailure(int count = 4) const {
        return "Read operation has failed. File: [" + path_ + "]. Size of data: [" + std::to_string(count) + "].";
    }

    tests::temp_dir_t dir_;
    std::string path_ = dir_ / "file";
    tests::fake_clock_t clock_;
    util::IClock::steady_point_t start_ = clock_.SteadyNow();
    std::unique_ptr<retryable_hostfs_file_rstream_t> stream_;
};

TEST_F(RetryableHostfsFileRstreamTest, AMissingFileFailsAtOnce) {
    const auto caught = Catch([&] { retryable_hostfs_file_rstream_t stream(path_ + "2", 3); });
    EXPECT_EQ(caught.message, "Failed to open file [" + path_ + "2] for reading.");
    EXPECT_EQ(Slept(), seconds(0));
}

TEST_F(RetryableHostfsFileRstreamTest, WithoutFailuresItReadsPlainly) {
    EXPECT_EQ(stream_->GetPath(), path_);
    EXPECT_EQ(stream_->GetFileSize(), 10000U);
    EXPECT_EQ(Read(5), "10000");
    stream_->SeekTo(5000);
    EXPECT_EQ(Read(5), "11000");
    EXPECT_EQ(Slept(), seconds(0));
}

TEST_F(RetryableHostfsFileRstreamTest, AReadThatAlwaysFailsIsAttemptedFourTimes) {
    tests::log_capture_t log;
    tests::syscall_script_t calls;
    calls.read.Fail(EIO);
    const auto caught = FailedRead();
    EXPECT_EQ(calls.read.TakeCount(), 4);
    EXPECT_EQ(calls.open.TakeCount(), 3);
    EXPECT_EQ(Slept(), seconds(30));
    EXPECT_EQ(caught.message, ReadFailure()) << "the read's own failure, not a wrapper";
    EXPECT_THAT(caught.causes, ElementsAre(HasSubstr("Input/output error")));
    int warnings = 0;
    for (const auto& record : log.Lines()) {
        warnings += record.level == logging::ELevel::eWarn;
    }
    EXPECT_EQ(warnings, 3);
    EXPECT_TRUE(Logged(log, logging::ELevel::eWarn, "Read failed, trying to retry", ReadFailure()));
}

TEST_F(RetryableHostfsFileRstreamTest, WithoutRetriesTheFirstFailureIsFinal) {
    for (const int tries : {0, -1}) {
        stream_ = std::make_unique<retryable_hostfs_file_rstream_t>(path_, tries);
        tests::syscall_script_t calls;
        calls.read.Fail(EIO);
        EXPECT_EQ(FailedRead().message, ReadFailure());
        EXPECT_EQ(calls.read.TakeCount(), 1);
        EXPECT_EQ(Slept(), seconds(0));
    }
}

TEST_F(RetryableHostfsFileRstreamTest, ARetriedReadGoesOnWhereTheReaderWas) {
    Read(100);
    tests::syscall_script_t calls;
    calls.read.Fail(EIO, 0, 2);
    EXPECT_EQ(Read(5), "10020");
    EXPECT_EQ(Read(5), "10021");
    EXPECT_EQ(Slept(), seconds(20));
}

TEST_F(RetryableHostfsFileRstreamTest, ARetriedReadGoesOnWhereTheReaderWasSentTo) {
    stream_->SeekTo(5000);
    tests::syscall_script_t calls;
    calls.read.Fail(EIO, 0, 1);
    EXPECT_EQ(Read(5), "11000");
}

TEST_F(RetryableHostfsFileRstreamTest, AnOffsetIsRememberedEvenWhenTheSeekFails) {
    {
        tests::syscall_script_t calls;
        calls.lseek.Fail(EIO, 0, 1);
        Catch([&] { stream_->SeekTo(5000); });
        EXPECT_EQ(calls.open.TakeCount(), 0) << "a seek is not retried";
    }
    tests::syscall_script_t calls;
    calls.read.Fail(EIO, 0, 1);
    EXPECT_EQ(Read(5), "11000");
}

TEST_F(RetryableHostfsFileRstreamTest, TheSizeIsNotRetried) {
    tests::syscall_script_t calls;
    calls.fstat.Fail(EIO, 0, 1);
    Catch([&] { stream_->GetFileSize(); });
    EXPECT_EQ(Slept(), seconds(0));
    EXPECT_EQ(calls.open.TakeCount(), 0);
}

TEST_F(RetryableHostfsFileRstreamTest, AReopenThatKeepsFailingEndsTheRead) {
    tests::syscall_script_t calls;
    calls.read.Fail(EIO);
    calls.open.Fail(EHOSTDOWN);
    const auto caught = FailedRead();
    EXPECT_TRUE(caught.Is<exc::CRuntimeExc>());
    EXPECT_EQ(caught.message, "Failed to reopen hostfs file.");
    EXPECT_THAT(caught.causes,
                ElementsAre("Failed to open file [" + path_ + "] for reading.", HasSubstr("Host is down")));
    EXPECT_EQ(calls.open.TakeCount(), 4);
    EXPECT_EQ(Slept(), seconds(40)) << "one pause of the read and three of the reopen";
}

// Lets three opens fail after every pause of a read, so that each reopen pauses three times and then works.
class failing_share_clock_t final : public util::IClock {
  public:
    explicit failing_share_clock_t(tests::syscall_script_t& calls) : calls_(calls) {}

    steady_point_t SteadyNow() const override { return {}; }
    std::chrono::system_clock::time_point SystemNow() const override { return {}; }
    void SleepFor(std::chrono::milliseconds /*duration*/, std::stop_token /*stop*/) override {
        if (pauses_++ % 4 == 0) {
            calls_.open.Fail(EHOSTDOWN, 0, 3);
        }
    }
    int Pauses() const { return pauses_; }

  private:
    tests::syscall_script_t& calls_;
    int pauses_ = 0;
};

TEST_F(RetryableHostfsFileRstreamTest, EveryRetryOfTheReadMayReopenWithRetriesOfItsOwn) {
    tests::syscall_script_t calls;
    calls.read.Fail(EIO);
    failing_share_clock_t clock(calls);
    const util::scoped_clock_t scope(clock);
    EXPECT_EQ(FailedRead().message, ReadFailure());
    EXPECT_EQ(clock.Pauses(), 3 * (3 + 1));
    EXPECT_EQ(calls.open.TakeCount(), 3 * (3 + 1));
    EXPECT_EQ(calls.read.TakeCount(), 4);
}

TEST_F(RetryableHostfsFileRstreamTest, AFailedSeekOfTheNewStreamIsRetriedLikeAFailedOpen) {
    Read(100);
    tests::syscall_script_t calls;
    calls.read.Fail(EIO, 0, 1);
    calls.lseek.Fail(EIO, 0, 2);
    EXPECT_EQ(Read(5), "10020");
    EXPECT_EQ(calls.open.TakeCount(), 3);
    EXPECT_EQ(Slept(), seconds(30));
}

TEST_F(RetryableHostfsFileRstreamTest, TheEndOfTheFileIsRetriedLikeAnyFailure) {
    stream_->SeekTo(9998);
    EXPECT_EQ(FailedRead().message, ReadFailure());
    EXPECT_EQ(Slept(), seconds(30));
}

TEST_F(RetryableHostfsFileRstreamTest, ReopenCanBeAskedForAnOffset) {
    stream_->Reopen(5000);
    EXPECT_EQ(Read(5), "11000");
}

TEST_F(RetryableHostfsFileRstreamTest, AFinishedStreamFailsAtOnceWithoutRetries) {
    const std::size_t before = tests::OpenDescriptors();
    stream_->FinishRead();
    EXPECT_EQ(tests::OpenDescriptors(), before - 1);
    const std::string finished = "hostfs read stream is null";
    const auto read = FailedRead();
    EXPECT_TRUE(read.Is<exc::CRuntimeExc>());
    EXPECT_EQ(read.what, finished);
    EXPECT_EQ(Catch([&] { stream_->GetFileSize(); }).what, finished);
    EXPECT_EQ(Catch([&] { stream_->SeekTo(0); }).what, finished);
    EXPECT_EQ(Catch([&] { stream_->CheckStreamExc(); }).what, finished);
    EXPECT_EQ(stream_->GetPath(), path_);
    EXPECT_EQ(Slept(), seconds(0));
    EXPECT_EQ(tests::OpenDescriptors(), before - 1);
}

}  // namespace
