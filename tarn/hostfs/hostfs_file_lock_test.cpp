#include "tarn/hostfs/hostfs_file_lock.h"

#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <iterator>

#include <gtest/gtest.h>

#include "tests/support/logged.h"
#include "tests/support/temp_dir.h"

namespace {

using tarn::hostfs::hostfs_file_lock_t;

// Runs `action` in another process; true when it says so.
template <class Action>
bool InAnotherProcess(Action action) {
    const pid_t child = fork();
    if (child == 0) {
        _exit(action() ? 0 : 1);
    }
    int status = 1;
    return waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

class HostfsFileLockTest : public testing::Test {
  protected:
    HostfsFileLockTest() { std::ofstream(path_) << "old"; }

    tests::temp_dir_t dir_;
    std::string path_ = dir_ / "file";
};

TEST_F(HostfsFileLockTest, NobodyIsKeptFromALockedFile) {
    const auto lock = hostfs_file_lock_t::GetExclusiveLockPtrForFile(posix::posix_file_t::Open4Read(path_));
    ASSERT_NE(lock, nullptr);
    EXPECT_TRUE(InAnotherProcess([&] {
        const auto file = posix::posix_file_t::Open4Write(path_);
        const hostfs_file_lock_t second(path_, file);
        file->Write("new", 3);
        return true;
    }));
    posix::posix_file_t::Open4Write(path_)->Write("N", 1);
    std::ifstream in(path_);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), "New");
}

TEST_F(HostfsFileLockTest, ALockKeepsItsFileOpenAndLetsItGo) {
    auto file = posix::posix_file_t::Open4Read(path_);
    const std::weak_ptr<posix::posix_file_t> watch = file;
    auto lock = hostfs_file_lock_t::GetExclusiveLockPtrForFile(std::move(file));
    EXPECT_FALSE(watch.expired());
    tests::log_capture_t log;
    lock.reset();
    EXPECT_TRUE(watch.expired());
    EXPECT_TRUE(log.Lines().empty());
}

TEST_F(HostfsFileLockTest, ThePlatformsPartTakesAnything) {
    EXPECT_NO_THROW(hostfs_file_lock_t::ApplyLock("", nullptr, true));
    EXPECT_NO_THROW(hostfs_file_lock_t::ApplyLock("", nullptr, false));
    EXPECT_NO_THROW(hostfs_file_lock_t::RemoveLock("", nullptr));
}

}  // namespace
