#include "agent/tree/object_brief.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/posix/errno_exc.h"
#include "tests/support/fake_user_names.h"
#include "tests/support/faulty_syscalls.h"
#include "tests/support/temp_dir.h"

namespace agent {
namespace {

namespace fs = std::filesystem;

class ObjectBrief : public ::testing::Test {
  protected:
    ObjectBrief() {
        fs::create_directories(At("dir/sub"));
        tests::WriteFile(At("dir/file"), "text");
        fs::create_symlink("../nowhere\xff", At("dir/link"));
        fs::create_directory_symlink("sub", At("dir/dirlink"));
        root_ = confined_root_t::Open(dir_.path());
    }

    std::string At(const std::string& name) const { return dir_ / name; }
    std::optional<object_brief_t> Ask(const std::string& name) const { return Examine(*root_, name); }

    tests::temp_dir_t dir_;
    std::shared_ptr<const confined_root_t> root_;
};

TEST_F(ObjectBrief, FileIsTold) {
    tests::fake_user_names_t names;
    names.users["ann"] = ::geteuid();
    names.groups["staff"] = ::getegid();
    ASSERT_EQ(::chmod(At("dir/file").c_str(), 04751), 0);
    const timespec times[2] = {{5, 6}, {-7, 999999999}};
    ASSERT_EQ(::utimensat(AT_FDCWD, At("dir/file").c_str(), times, 0), 0);
    fs::create_hard_link(At("dir/file"), At("second"));
    struct stat seen {};
    ASSERT_EQ(::lstat(At("second").c_str(), &seen), 0);
    const object_brief_t expected{
        EEntryKind::eFile, 04751, 4, {-7, 999999999}, {"ann", ::geteuid()}, {"staff", ::getegid()}, seen.st_dev,
        seen.st_ino,       2,     ""};
    EXPECT_EQ(Ask("dir/file"), expected);
    EXPECT_EQ(Ask("second"), expected);
}

TEST_F(ObjectBrief, KindsAreTold) {
    ASSERT_EQ(::mkfifo(At("dir/pipe").c_str(), 0600), 0);
    EXPECT_EQ(Ask("dir")->kind, EEntryKind::eDirectory);
    EXPECT_EQ(Ask("dir/pipe")->kind, EEntryKind::eFifo);
    EXPECT_EQ(Ask("dir/link")->kind, EEntryKind::eLink);
}

TEST_F(ObjectBrief, LinkIsToldItselfWithItsTarget) {
    EXPECT_EQ(Ask("dir/link")->target, "../nowhere\xff");
    EXPECT_EQ(Ask("dir/dirlink")->target, "sub");
    EXPECT_EQ(Ask("dir")->target, "");
}

TEST_F(ObjectBrief, EmptyNameIsTheRoot) {
    struct stat seen {};
    ASSERT_EQ(::stat(dir_.path().c_str(), &seen), 0);
    EXPECT_EQ(Ask("")->kind, EEntryKind::eDirectory);
    EXPECT_EQ(Ask("")->inode, seen.st_ino);
}

TEST_F(ObjectBrief, NothingWhereNothingCanBeReached) {
    for (const char* const name :
         {"missing", "missing/deeper", "dir/file/below", "dir/dirlink/below", "dir/link/below"}) {
        EXPECT_EQ(Ask(name), std::nullopt) << name;
    }
}

TEST_F(ObjectBrief, NameThatLeadsOutIsRefused) {
    for (const char* const name : {"../x", "/etc", "dir/../..", "dir//file", ".tarn-staging/lock"}) {
        EXPECT_THROW(Ask(name), exc::CRuntimeExc) << name;
    }
}

TEST_F(ObjectBrief, FailureOfTheSystemIsNotAbsence) {
    tests::faulty_syscalls_t calls;
    calls.Fail<&posix::syscalls_t::fstat>(EIO, 1, 100);
    try {
        Ask("dir/file");
        FAIL();
    } catch (const posix::errno_exc_t& error) {
        EXPECT_EQ(error.GetErrno(), EIO);
        EXPECT_NE(error.Message().find("dir/file"), std::string::npos);
    }
}

TEST_F(ObjectBrief, OwnerWhoseNameNoRecordCarriesIsANumber) {
    tests::fake_user_names_t names;
    names.users[std::string(300, 'u')] = ::geteuid();
    EXPECT_EQ(Ask("dir/file")->owner, (util::SPrincipal{"", ::geteuid()}));
}

}  // namespace
}  // namespace agent
