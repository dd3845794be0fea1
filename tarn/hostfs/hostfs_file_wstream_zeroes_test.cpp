// Zero runs of the host's write stream: when a run is skipped and when it is written.
#include <sys/stat.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <limits>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "mirrowen/exc/runtime_exc.h"
#include "tarn/hostfs/hostfs_file_wstream.h"
#include "tests/support/caught.h"
#include "tests/support/syscall_script.h"
#include "tests/support/temp_dir.h"

namespace {

using tarn::hostfs::hostfs_file_wstream_t;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr std::uint64_t kMax = std::numeric_limits<std::uint64_t>::max();

class HostfsZeroRunTest : public testing::Test {
  protected:
    std::string Path() const { return dir_ / "file"; }
    std::string Get() const {
        std::ifstream in(Path(), std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }
    std::shared_ptr<hostfs_file_wstream_t> Create(std::uint64_t length) const {
        return hostfs_file_wstream_t::CreateNew(Path(), length, false, true);
    }
    std::uint64_t BlocksOnDisk() const {
        struct stat info = {};
        EXPECT_EQ(stat(Path().c_str(), &info), 0);
        return static_cast<std::uint64_t>(info.st_blocks);
    }

    tests::temp_dir_t dir_;
};

TEST_F(HostfsZeroRunTest, ARunBelowTheKnownLengthIsSkipped) {
    const auto stream = Create(1000);
    tests::syscall_script_t calls;
    EXPECT_EQ(stream->WriteZeroes(999), 999U);
    EXPECT_THAT(calls.writeCounts, ElementsAre());
    EXPECT_EQ(stream->WriteExc("x", 1), 1U);
    EXPECT_EQ(Get(), std::string(999, '\0') + "x");
}

TEST_F(HostfsZeroRunTest, ARunThatEndsAtTheKnownLengthIsWritten) {
    const auto stream = Create(1000);
    tests::syscall_script_t calls;
    EXPECT_EQ(stream->WriteZeroes(1000), 1000U);
    EXPECT_THAT(calls.writeCounts, ElementsAre(1000U));
    EXPECT_EQ(Get(), std::string(1000, '\0'));
}

TEST_F(HostfsZeroRunTest, SkippedRunsAddUpToTheKnownLength) {
    const auto stream = Create(1000);
    tests::syscall_script_t calls;
    stream->WriteZeroes(500);
    stream->WriteZeroes(499);
    EXPECT_THAT(calls.writeCounts, ElementsAre());
    stream->WriteZeroes(1);
    EXPECT_THAT(calls.writeCounts, ElementsAre(1U)) << "the last byte is really there";
}

TEST_F(HostfsZeroRunTest, ALongFileOfZeroesTakesHardlyAnyRoom) {
    constexpr std::uint64_t kLength = 64ULL << 20;
    const auto stream = Create(kLength);
    for (std::uint64_t at = 0; at != kLength; at += 1ULL << 20) {
        stream->WriteZeroes(1ULL << 20);
    }
    stream->Close(nullptr);
    EXPECT_GT(BlocksOnDisk(), 0U);
    EXPECT_LE(BlocksOnDisk() * 512, 2ULL << 20);
    EXPECT_EQ(Get(), std::string(kLength, '\0'));
}

TEST_F(HostfsZeroRunTest, AResizedFileIsWrittenAlways) {
    std::ofstream(Path()) << "0123456789";
    const auto stream = hostfs_file_wstream_t::OpenExistingAndResize(Path(), 10);
    tests::syscall_script_t calls;
    stream->WriteZeroes(4);
    EXPECT_THAT(calls.writeCounts, ElementsAre(4U));
    stream->Close(nullptr);
    EXPECT_EQ(Get(), std::string(4, '\0') + "456789");
}

TEST_F(HostfsZeroRunTest, AnExistingFileIsWrittenUnlessTheCallerVouchesForIt) {
    std::ofstream(Path()) << std::string(100, '\0');
    const std::uint64_t known = 100;
    tests::syscall_script_t calls;
    hostfs_file_wstream_t::OpenExisting(Path(), nullptr, nullptr)->WriteZeroes(50);
    EXPECT_THAT(calls.writeCounts, ElementsAre(50U));
    calls.writeCounts.clear();
    const auto stream = hostfs_file_wstream_t::OpenExisting(Path(), nullptr, &known);
    stream->WriteZeroes(99);
    EXPECT_THAT(calls.writeCounts, ElementsAre());
    stream->WriteZeroes(1);
    EXPECT_THAT(calls.writeCounts, ElementsAre(1U));
}

TEST_F(HostfsZeroRunTest, AfterASeekBackOldBytesAreOverwritten) {
    const auto stream = Create(1000);
    stream->WriteExc(std::string(500, 'x').data(), 500);
    stream->SeekTo(0);
    tests::syscall_script_t calls;
    stream->WriteZeroes(100);
    EXPECT_THAT(calls.writeCounts, ElementsAre(100U));
    stream->Close(nullptr);
    EXPECT_EQ(Get(), std::string(100, '\0') + std::string(400, 'x') + std::string(500, '\0'));
}

TEST_F(HostfsZeroRunTest, AfterASeekForwardARunBeyondTheEndIsWritten) {
    const auto stream = Create(1000);
    stream->SeekTo(900);
    stream->WriteZeroes(500);
    stream->Close(nullptr);
    EXPECT_EQ(Get().size(), 1400U);
}

TEST_F(HostfsZeroRunTest, BytesOfAWriteThatFailedHalfWayAreOverwritten) {
    const auto stream = Create(1000);
    {
        tests::syscall_script_t calls;
        calls.write.Fail(ENOSPC);
        tests::Catch([&] { stream->WriteExc(std::string(100, 'x').data(), 100); });
    }
    stream->SeekTo(50);
    tests::syscall_script_t calls;
    stream->WriteZeroes(10);
    EXPECT_THAT(calls.writeCounts, ElementsAre(10U)) << "what the failed write left is not known";
}

TEST_F(HostfsZeroRunTest, AfterASeekBeyondEverythingWrittenARunIsSkipped) {
    const auto stream = Create(1000);
    stream->WriteExc("x", 1);
    stream->SeekTo(200);
    tests::syscall_script_t calls;
    stream->WriteZeroes(100);
    EXPECT_THAT(calls.writeCounts, ElementsAre());
}

TEST_F(HostfsZeroRunTest, AFailedSkipSaysSo) {
    const auto stream = Create(1000);
    tests::syscall_script_t calls;
    calls.lseek.Fail(EIO);
    const auto caught = tests::Catch([&] { stream->WriteZeroes(10); });
    EXPECT_TRUE(caught.Is<exc::CRuntimeExc>());
    EXPECT_EQ(caught.message, "Failed to write sparse block to the file.");
    EXPECT_THAT(caught.causes, ElementsAre(HasSubstr("Input/output error")));
}

// Records what it is asked to write instead of writing it.
class recorder_t final : public hostfs_file_wstream_t {
  public:
    using hostfs_file_wstream_t::hostfs_file_wstream_t;
    ~recorder_t() override = default;
    std::uint64_t WriteExc(const void* buffer, std::uint64_t count) override {
        const char* const bytes = static_cast<const char*>(buffer);
        zeroes = zeroes && std::all_of(bytes, bytes + count, [](char byte) { return byte == 0; });
        counts.push_back(count);
        return count + 7;
    }
    bool zeroes = true;
    std::vector<std::uint64_t> counts;
};

TEST_F(HostfsZeroRunTest, AWrittenRunGoesThroughTheStreamsOwnWrite) {
    recorder_t stream(posix::posix_file_t::CreateNew(Path(), 10), 10);
    EXPECT_EQ(stream.WriteZeroes(10), 17U);
    EXPECT_THAT(stream.counts, ElementsAre(10U));
    EXPECT_TRUE(stream.zeroes);
    EXPECT_EQ(stream.WriteZeroes(9), 9U) << "the count of the run is added once, by the write itself";
}

TEST_F(HostfsZeroRunTest, CountsNearTheEndOfTheNumbersDoNotWrapAround) {
    const auto stream = Create(1000);
    stream->WriteZeroes(500);
    tests::syscall_script_t calls;
    // 500 + count would be 99: the run must not be taken for a short one that ends below the known length.
    EXPECT_ANY_THROW(stream->WriteZeroes(kMax - 400));
    EXPECT_EQ(calls.lseek.TakeCount(), 0);
}

}  // namespace
