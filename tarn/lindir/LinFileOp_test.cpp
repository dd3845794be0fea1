#include "tarn/lindir/LinFileOp.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <type_traits>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tarn/lindir/lin_dir_handle.h"
#include "tests/support/caught_error.h"
#include "tests/support/faulty_syscalls.h"
#include "tests/support/log_capture.h"
#include "tests/support/temp_dir.h"

namespace tarn::lindir {
namespace {

using logging::ELevel;
using tests::CatchError;
using tests::Throws;

static_assert(!std::is_copy_constructible_v<CLinDirHandle> && !std::is_copy_assignable_v<CLinDirHandle>);
static_assert(sizeof(CLinDirHandle) == sizeof(DIR*));

class LinFileOp : public testing::Test {
  protected:
    void ExpectWarning(const std::string& text) const {
        EXPECT_TRUE(log_.Has(ELevel::eWarn, text)) << log_.Dump();
        for (const auto& line : log_.Lines()) {
            EXPECT_EQ(line.section, "fs_log");
        }
    }

    tests::temp_dir_t dir_;
    tests::log_capture_t log_;
    const std::string missing_ = dir_ / "missing";
    struct stat attributes_ {};
};

TEST_F(LinFileOp, HandleClosesItsDirectoryOnce) {
    CLinDirHandle handle(CLinFileOp::OpenDirExc(dir_.path()));
    EXPECT_TRUE(handle.IsValid());
    const int fd = ::dirfd(handle.GetHandle());
    handle.closeHandle();
    EXPECT_FALSE(handle.IsValid());
    EXPECT_EQ(handle.GetHandle(), nullptr);
    EXPECT_EQ(::fcntl(fd, F_GETFD), -1);
    handle.closeHandle();
}

TEST_F(LinFileOp, HandleClosesItsDirectoryWhenItGoes) {
    int fd = -1;
    {
        const CLinDirHandle handle(CLinFileOp::OpenDirExc(dir_.path()));
        fd = ::dirfd(handle.GetHandle());
    }
    EXPECT_EQ(::fcntl(fd, F_GETFD), -1);
    EXPECT_FALSE(CLinDirHandle(nullptr).IsValid());
}

TEST_F(LinFileOp, DirectoryThatCannotBeOpenedIsNamed) {
    EXPECT_THAT(CatchError([&] { CLinFileOp::OpenDirExc(missing_); }),
                Throws("posix::errno_exc_t", "Failed to open dir: " + missing_ + ": No such file or directory"));
}

TEST_F(LinFileOp, DirectoryDescriptorsAreRefused) {
    const CLinDirHandle handle(CLinFileOp::OpenDirExc(dir_.path()));
    EXPECT_THAT(CatchError([&] { CLinFileOp::GetDirDescExc(handle.GetHandle(), dir_.path()); }),
                Throws("std::runtime_error", "tarn/lindir/LinFileOp:GetDirDescExc -- not supported on this platform"));
}

TEST_F(LinFileOp, FstatOfABadDescriptorNamesPathAndDescriptor) {
    EXPECT_THAT(CatchError([&] { CLinFileOp::fstatExc(-1, attributes_, "a%2"); }),
                Throws("posix::errno_exc_t", "Failed to call fstat: a%2, file descriptor: -1: Bad file descriptor"));
}

TEST_F(LinFileOp, AttributesOfAMissingObjectAreAWarning) {
    EXPECT_FALSE(CLinFileOp::lstatSafe(missing_, attributes_));
    ExpectWarning("Unable to get lstat for item [" + missing_ + "]. No such file or directory");
    EXPECT_FALSE(CLinFileOp::statSafe(missing_, attributes_));
    ExpectWarning("Unable to get stat for item [" + missing_ + "]. No such file or directory");
}

TEST_F(LinFileOp, StatFollowsALinkAndLstatDoesNot) {
    std::filesystem::create_symlink(".", dir_ / "link");
    EXPECT_TRUE(CLinFileOp::lstatSafe(dir_ / "link", attributes_));
    EXPECT_TRUE(S_ISLNK(attributes_.st_mode));
    EXPECT_TRUE(CLinFileOp::statSafe(dir_ / "link", attributes_));
    EXPECT_TRUE(S_ISDIR(attributes_.st_mode));
    EXPECT_EQ(log_.Lines().size(), 0U);
}

TEST_F(LinFileOp, AccountsAreFoundByNumber) {
    EXPECT_STREQ(CLinFileOp::getpwuidSafe(0, "p")->pw_name, "root");
    EXPECT_STREQ(CLinFileOp::getgrgidSafe(0, "p")->gr_name, "root");
    EXPECT_EQ(log_.Lines().size(), 0U);
}

TEST_F(LinFileOp, NumberWithoutAccountIsAWarning) {
    constexpr unsigned nobodyHas = 3999999999U;
    EXPECT_EQ(CLinFileOp::getpwuidSafe(nobodyHas, "p"), nullptr);
    ExpectWarning("Unable to call getpwuid for item [p]. No such file or directory");
    EXPECT_EQ(CLinFileOp::getgrgidSafe(nobodyHas, "p"), nullptr);
    ExpectWarning("Unable to call getgrgid for item [p]. No such file or directory");
}

TEST_F(LinFileOp, LinkIsReadUpToTheSizeThatItHad) {
    std::filesystem::create_symlink("target", dir_ / "link");
    std::string target = "before";
    EXPECT_TRUE(CLinFileOp::readlinkSafe(dir_ / "link", target, 6));
    EXPECT_EQ(target, "target");
    EXPECT_TRUE(CLinFileOp::readlinkSafe(dir_ / "link", target, 100));
    EXPECT_EQ(target, "target");
    EXPECT_FALSE(CLinFileOp::readlinkSafe(dir_ / "link", target, 5));
    ExpectWarning("Unable to call readlink for item [" + dir_ / "link" + "]. Invalid argument");
    EXPECT_EQ(target, "target");
}

TEST_F(LinFileOp, WhatIsNoLinkCannotBeReadAsOne) {
    std::string target;
    EXPECT_FALSE(CLinFileOp::readlinkSafe(missing_, target, 10));
    ExpectWarning("Unable to call readlink for item [" + missing_ + "]. No such file or directory");
}

}  // namespace
}  // namespace tarn::lindir
