// The life cycle of a file lock over a platform that really locks: this program has its own ApplyLock and RemoveLock,
// which take the place of the library's.
#include <fstream>
#include <stdexcept>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "mirrowen/util/fs.h"
#include "tarn/hostfs/hostfs_file_lock.h"
#include "tarn/hostfs/hostfs_file_rstream.h"
#include "tarn/hostfs/hostfs_operations.h"
#include "tarn/hostfs/retryable_file_rstream.h"
#include "tests/support/caught.h"
#include "tests/support/logged.h"
#include "tests/support/temp_dir.h"

namespace {

std::vector<std::string> g_calls;
bool g_fail = false;

void Note(const std::string& call) {
    g_calls.push_back(call);
    if (g_fail) {
        throw std::runtime_error("the platform refuses");
    }
}

}  // namespace

void tarn::hostfs::hostfs_file_lock_t::ApplyLock(const std::string& path,
                                                 const std::shared_ptr<posix::posix_file_t>& file, bool exclusive) {
    Note((exclusive ? "lock " : "share ") + path + (file->GetPath() == path ? "" : " of another file"));
}

void tarn::hostfs::hostfs_file_lock_t::RemoveLock(const std::string& path,
                                                  const std::shared_ptr<posix::posix_file_t>& file) {
    Note("unlock " + path + (file->GetPath() == path ? "" : " of another file"));
}

namespace {

using logging::ELevel;
using tarn::hostfs::hostfs_file_lock_t;
using tarn::hostfs::hostfs_file_rstream_t;
using testing::ElementsAre;
namespace retryable = tarn::hostfs::retryable;
using testing::IsEmpty;

class HostfsFileLockSeamTest : public testing::Test {
  protected:
    HostfsFileLockSeamTest() {
        std::ofstream(path_) << "content";
        g_calls.clear();
        g_fail = false;
    }

    tests::temp_dir_t dir_;
    std::string path_ = dir_ / "file";
};

TEST_F(HostfsFileLockSeamTest, TheLockLivesAsLongAsTheObject) {
    {
        const auto lock = hostfs_file_lock_t::GetExclusiveLockPtrForFile(posix::posix_file_t::Open4Read(path_));
        EXPECT_THAT(g_calls, ElementsAre("lock " + path_));
    }
    EXPECT_THAT(g_calls, ElementsAre("lock " + path_, "unlock " + path_));
}

TEST_F(HostfsFileLockSeamTest, AFailedUnlockIsLoggedAndNotThrown) {
    auto lock = hostfs_file_lock_t::GetExclusiveLockPtrForFile(posix::posix_file_t::Open4Read(path_));
    g_fail = true;
    tests::log_capture_t log;
    EXPECT_NO_THROW(lock.reset());
    EXPECT_TRUE(tests::Logged(log, ELevel::eWarn, "Problem with unlocking " + path_, "the platform refuses"));
}

TEST_F(HostfsFileLockSeamTest, AReadStreamHoldsTheLockUntilItIsFinished) {
    hostfs_file_rstream_t stream(path_, true);
    EXPECT_THAT(g_calls, ElementsAre("lock " + path_));
    stream.FinishRead();
    EXPECT_THAT(g_calls, ElementsAre("lock " + path_, "unlock " + path_));
    stream.FinishRead();
    EXPECT_EQ(g_calls.size(), 2U);
}

TEST_F(HostfsFileLockSeamTest, AReadStreamThatIsNotFinishedUnlocksAtItsEnd) {
    { const hostfs_file_rstream_t stream(path_, true); }
    EXPECT_THAT(g_calls, ElementsAre("lock " + path_, "unlock " + path_));
}

TEST_F(HostfsFileLockSeamTest, AnOrdinaryReadStreamTakesNoLock) {
    { const hostfs_file_rstream_t stream(path_); }
    EXPECT_THAT(g_calls, IsEmpty());
}

TEST_F(HostfsFileLockSeamTest, TheBackendTakesTheLockForExclusiveReadsOnly) {
    tarn::hostfs::hostfs_operations_t host;
    host.OpenFile4Read(path_);
    EXPECT_THAT(g_calls, IsEmpty());
    host.OpenFile4ReadWithoutWriteShare(path_);
    EXPECT_THAT(g_calls, ElementsAre("lock " + path_, "unlock " + path_));
    g_calls.clear();
    const util::scoped_fs_type_t everythingIsSmb([](const char*) -> long { return 0xff534d42L; });
    host.OpenFile4Read(path_);
    EXPECT_THAT(g_calls, IsEmpty());
    host.OpenFile4ReadWithoutWriteShare(path_);
    EXPECT_THAT(g_calls, ElementsAre("lock " + path_, "unlock " + path_));
}

TEST_F(HostfsFileLockSeamTest, AReopenedStreamIsLockedBeforeTheOldOneIsUnlocked) {
    retryable::CRetryableFileRstream stream(path_, true, 1, 0);
    g_calls.clear();
    stream.Reopen();
    EXPECT_THAT(g_calls, ElementsAre("lock " + path_, "unlock " + path_));
    stream.FinishRead();
    EXPECT_EQ(g_calls.back(), "unlock " + path_);
    EXPECT_EQ(g_calls.size(), 3U);
}

TEST_F(HostfsFileLockSeamTest, ALockThatIsRefusedFailsTheOpening) {
    g_fail = true;
    const auto caught = tests::Catch([&] { hostfs_file_rstream_t stream(path_, true); });
    EXPECT_EQ(caught.message, "Failed to open file [" + path_ + "] for reading.");
    EXPECT_THAT(caught.causes, ElementsAre("the platform refuses"));
}

}  // namespace
