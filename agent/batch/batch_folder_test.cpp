#include "agent/batch/batch_folder.h"

#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <optional>

#include "tests/support/caught.h"
#include "tests/support/faulty_syscalls.h"
#include "tests/support/log_capture.h"
#include "tests/support/scoped_variable.h"
#include "tests/support/temp_dir.h"

namespace agent::batch {
namespace {

namespace fs = std::filesystem;

class BatchFolder : public ::testing::Test {
  protected:
    std::string At(const std::string& name) const { return place_ / name; }
    // As a process that was killed while it wrote a blob file leaves it.
    std::string MakeAbandoned() const {
        const std::string path = At("tarn-batch-killed");
        fs::create_directory(path);
        tests::WriteFile(path + "/blobfs3", "half a fra");
        return path;
    }

    const tests::temp_dir_t place_;
    const tests::scoped_variable_t variable_{"TMPDIR", place_.path()};
};

TEST_F(BatchFolder, IsPrivateAndGoesWithWhatIsInIt) {
    std::string path;
    {
        const batch_folder_t folder;
        path = folder.GetPath();
        struct stat examined {};
        ASSERT_EQ(::stat(path.c_str(), &examined), 0);
        EXPECT_EQ(examined.st_mode & 07777, 0700u);
        fs::create_directory(path + "/left");
    }
    EXPECT_FALSE(fs::exists(path));
}

TEST_F(BatchFolder, FolderThatAKilledProcessLeftIsRemoved) {
    const std::string left = MakeAbandoned();
    const tests::log_capture_t log;
    RemoveAbandonedFolders();
    EXPECT_FALSE(fs::exists(left));
    EXPECT_TRUE(log.Has(logging::ELevel::eInfo, "Removed [" + left + "], which an earlier run left behind."));
}

TEST_F(BatchFolder, FolderInUseStays) {
    const batch_folder_t folder;
    tests::WriteFile(folder.GetPath() + "/blobfs0", "in the making");
    RemoveAbandonedFolders();
    EXPECT_TRUE(fs::exists(folder.GetPath() + "/blobfs0"));
}

TEST_F(BatchFolder, WhatOnlyLooksLikeOneStays) {
    fs::create_directory(At("tarn-batch-a-letter-more"));
    fs::create_directory(At("tarn-batch-less"));
    fs::create_directory(At("notes"));
    tests::WriteFile(At("tarn-batch-a-file"), "");
    tests::WriteFile(At("tarn-batch-012345"), "");
    fs::create_directory_symlink(At("notes"), At("tarn-batch-linked"));
    tests::WriteFile(At("notes/note"), "");
    const std::ptrdiff_t before = std::distance(fs::directory_iterator(place_.path()), {});
    RemoveAbandonedFolders();
    EXPECT_EQ(std::distance(fs::directory_iterator(place_.path()), {}), before);
    EXPECT_TRUE(fs::exists(At("notes/note")));
}

TEST_F(BatchFolder, PlaceThatIsMissingHasNothingToRemove) {
    const tests::scoped_variable_t variable("TMPDIR", At("nowhere"));
    const tests::log_capture_t log;
    RemoveAbandonedFolders();
    EXPECT_TRUE(log.Has(logging::ELevel::eInfo, "Failed to look for what an earlier run left behind."));
}

TEST_F(BatchFolder, FolderOfAnotherUserStays) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root gives files away";
    }
    const std::string left = MakeAbandoned();
    ASSERT_EQ(::chown(left.c_str(), 65534, 65534), 0);
    RemoveAbandonedFolders();
    EXPECT_TRUE(fs::exists(left + "/blobfs3"));
}

TEST_F(BatchFolder, FolderThatCannotBeClearedIsLeftAndTheOthersGo) {
    const std::string stuck = At("tarn-batch-stucky");
    fs::create_directories(stuck + "/directory");
    const std::string left = MakeAbandoned();
    RemoveAbandonedFolders();
    EXPECT_TRUE(fs::exists(stuck));
    EXPECT_FALSE(fs::exists(left));
}

// Another process may look for abandoned folders between the making of this one and its lock.
TEST_F(BatchFolder, FolderThatIsTakenForAbandonedBeforeItsLockIsMadeAgain) {
    static std::string place;
    static int calls;
    place = place_.path();
    calls = 0;
    tests::faulty_syscalls_t syscalls;
    syscalls.Table().flock = [](int fd, int operation) {
        if (++calls == 1) {
            for (const auto& entry : fs::directory_iterator(place)) {
                fs::remove(entry.path());
            }
        }
        return ::flock(fd, operation);
    };
    const batch_folder_t folder;
    EXPECT_TRUE(fs::is_directory(folder.GetPath()));
    EXPECT_EQ(calls, 2);
}

TEST_F(BatchFolder, WithoutLocksNothingIsTakenForAbandoned) {
    const std::string left = MakeAbandoned();
    tests::faulty_syscalls_t syscalls;
    syscalls.Fail<&posix::syscalls_t::flock>(ENOLCK, 1, 10);
    const batch_folder_t folder;
    RemoveAbandonedFolders();
    EXPECT_TRUE(fs::exists(left));
    EXPECT_TRUE(fs::is_directory(folder.GetPath()));
}

TEST_F(BatchFolder, FolderThatCannotBeOpenedIsNamed) {
    tests::faulty_syscalls_t syscalls;
    syscalls.Fail<&posix::syscalls_t::open>(EMFILE);
    const tests::caught_t caught = tests::Catch([] { batch_folder_t(); });
    EXPECT_EQ(caught.message.find("Failed to open temporary folder [" + At("tarn-batch-")), 0U);
    EXPECT_NE(caught.message.find("]: Too many open files"), std::string::npos);
}

TEST_F(BatchFolder, PlaceThatIsMissingIsNamed) {
    const tests::scoped_variable_t variable("TMPDIR", At("nowhere"));
    const tests::caught_t caught = tests::Catch([] { batch_folder_t(); });
    EXPECT_EQ(caught.message,
              "Failed to create a temporary folder in [" + At("nowhere") + "]: No such file or directory");
}

}  // namespace
}  // namespace agent::batch
