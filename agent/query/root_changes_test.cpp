#include "agent/query/root_changes.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "mirrowen/exc/already_exists_exc.h"
#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/posix/errno_exc.h"
#include "mirrowen/posix/syscalls.h"
#include "tests/support/query_fixture.h"
#include "tests/support/root_fixture.h"

namespace agent::query {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using tests::ThrownText;

std::vector<std::string>* g_calls = nullptr;

/// Notes changes of names and syncs, in their order.
class recorded_calls_t {
  public:
    recorded_calls_t() : scope_(Table()) { g_calls = &calls_; }
    ~recorded_calls_t() { g_calls = nullptr; }
    recorded_calls_t(const recorded_calls_t&) = delete;
    recorded_calls_t& operator=(const recorded_calls_t&) = delete;

    const std::vector<std::string>& Get() const { return calls_; }

  private:
    static const posix::syscalls_t& Table() {
        static posix::syscalls_t table;
        table = posix::real_syscalls();
        table.fsync = [](int fd) {
            struct stat found {};
            ::fstat(fd, &found);
            g_calls->push_back(S_ISDIR(found.st_mode) ? "sync directory " + std::to_string(found.st_ino) : "sync");
            return posix::real_syscalls().fsync(fd);
        };
        table.unlinkat = [](int dir, const char* name, int flags) {
            g_calls->push_back(std::string(flags == 0 ? "unlink " : "rmdir ") + name);
            return posix::real_syscalls().unlinkat(dir, name, flags);
        };
        table.mkdirat = [](int dir, const char* name, mode_t mode) {
            g_calls->push_back(std::string("mkdir ") + name);
            return posix::real_syscalls().mkdirat(dir, name, mode);
        };
        table.renameat2 = [](int fromDir, const char* from, int toDir, const char* to, unsigned flags) {
            g_calls->push_back(std::string("rename ") + from + " " + to);
            return posix::real_syscalls().renameat2(fromDir, from, toDir, to, flags);
        };
        return table;
    }

    std::vector<std::string> calls_;
    posix::scoped_syscalls_t scope_;
};

class RootChanges : public testing::Test {
  protected:
    RootChanges() {
        fs::create_directories(At("one/sub"));
        fs::create_directories(At("two"));
        tests::WriteFile(At("one/file"), "text");
    }

    std::string At(const std::string& name) const { return dir_ / name; }
    std::string SyncOf(const std::string& directory) const {
        struct stat found {};
        EXPECT_EQ(::stat(At(directory).c_str(), &found), 0);
        return "sync directory " + std::to_string(found.st_ino);
    }

    tests::temp_dir_t dir_;
    std::shared_ptr<const confined_root_t> root_ = confined_root_t::Open(dir_.path());
};

TEST_F(RootChanges, EachIsOneStepAndSyncedAfterwards) {
    const recorded_calls_t calls;
    RemoveObject(*root_, "one/file");
    MakeDirectory(*root_, "two/new");
    MoveObject(*root_, "two/new", "one/moved", EReplace::eNo);
    RemoveObject(*root_, "one/moved");
    EXPECT_THAT(calls.Get(), ElementsAre("unlink file", SyncOf("one"), "mkdir new", SyncOf("two"), "rename new moved",
                                         SyncOf("one"), SyncOf("two"), "unlink moved", "rmdir moved", SyncOf("one")));
}

TEST_F(RootChanges, WhatCannotBeSyncedIsNotCalledDone) {
    tests::faulty_syscalls_t calls;
    calls.Fail<&posix::syscalls_t::fsync>(EIO, 1, 100);
    for (const auto& change : std::vector<std::function<void()>>{
             [&] { RemoveObject(*root_, "one/file"); }, [&] { MakeDirectory(*root_, "two/new"); },
             [&] { MoveObject(*root_, "two/new", "one/moved", EReplace::eNo); }}) {
        EXPECT_THAT(ThrownText(change), HasSubstr("Failed to sync ["));
    }
}

TEST_F(RootChanges, DirectoryThatIsNotEmptyStays) {
    EXPECT_THAT(ThrownText([&] { RemoveObject(*root_, "one"); }), HasSubstr("one]: Directory not empty"));
    EXPECT_EQ(tests::ReadFile(At("one/file")), "text");
}

TEST_F(RootChanges, LinkIsRemovedAndNotWhatItPointsTo) {
    fs::create_symlink("one/file", At("link"));
    fs::create_directory_symlink("one", At("dirlink"));
    RemoveObject(*root_, "link");
    RemoveObject(*root_, "dirlink");
    EXPECT_FALSE(fs::exists(fs::symlink_status(At("link"))));
    EXPECT_FALSE(fs::exists(fs::symlink_status(At("dirlink"))));
    EXPECT_EQ(tests::ReadFile(At("one/file")), "text");
}

TEST_F(RootChanges, NewDirectoryHasThePermissionsOfTheProcess) {
    const mode_t before = ::umask(027);
    MakeDirectory(*root_, "new");
    ::umask(before);
    struct stat found {};
    ASSERT_EQ(::stat(At("new").c_str(), &found), 0);
    EXPECT_EQ(found.st_mode & 07777U, 0750U);
}

TEST_F(RootChanges, DirectoryIsReplacedOnlyWhenItIsEmptyAndOnlyByADirectory) {
    EXPECT_THROW(MoveObject(*root_, "two", "one", EReplace::eYes), posix::errno_exc_t);
    EXPECT_THROW(MoveObject(*root_, "one/file", "two", EReplace::eYes), posix::errno_exc_t);
    EXPECT_THROW(MoveObject(*root_, "one", "two", EReplace::eNo), exc::CAlreadyExistsExc);
    MoveObject(*root_, "one", "two", EReplace::eYes);
    EXPECT_EQ(tests::ReadFile(At("two/file")), "text");
    EXPECT_FALSE(fs::exists(At("one")));
}

TEST_F(RootChanges, DirectoryCannotBeMovedIntoItself) {
    for (const EReplace replace : {EReplace::eNo, EReplace::eYes}) {
        EXPECT_THAT(ThrownText([&] { MoveObject(*root_, "one", "one/sub/new", replace); }),
                    HasSubstr("one] cannot be moved into itself."));
    }
    MoveObject(*root_, "one", "onemore", EReplace::eNo);
    EXPECT_TRUE(fs::exists(At("onemore/sub")));
}

TEST_F(RootChanges, SecondNameOfAFileIsNotSilentlyKept) {
    fs::create_hard_link(At("one/file"), At("two/second"));
    EXPECT_THAT(ThrownText([&] { MoveObject(*root_, "one/file", "two/second", EReplace::eYes); }),
                HasSubstr("are the same file."));
    EXPECT_THAT(ThrownText([&] { MoveObject(*root_, "one/file", "one/file", EReplace::eYes); }),
                HasSubstr("are the same file."));
    EXPECT_THROW(MoveObject(*root_, "one/file", "one/file", EReplace::eNo), exc::CAlreadyExistsExc);
    EXPECT_TRUE(fs::exists(At("one/file")));
}

TEST_F(RootChanges, MovedLinkStaysALink) {
    fs::create_symlink("nowhere", At("link"));
    MoveObject(*root_, "link", "one/file", EReplace::eYes);
    EXPECT_EQ(fs::read_symlink(At("one/file")), "nowhere");
}

// A link that is swapped in for a parent, before any step that looks a name up.
class SwappedParent : public tests::root_fixture_t, public testing::WithParamInterface<EResolver> {
  protected:
    SwappedParent() : root_fixture_t(GetParam()) {}
};

TEST_P(SwappedParent, NeverLeadsOutside) {
    const std::vector<std::function<void()>> changes = {[&] { RemoveObject(Root(), "a/b/x"); },
                                                        [&] { MakeDirectory(Root(), "a/b/new"); },
                                                        [&] { MoveObject(Root(), "top", "a/b/x", EReplace::eYes); },
                                                        [&] { MoveObject(Root(), "a/b/x", "top", EReplace::eYes); }};
    const auto outside = tests::SnapshotOf(Outside());
    for (const auto& change : changes) {
        for (int step = 0; step < 12; ++step) {
            MakeTree();
            {
                const tests::step_hook_t hook(step, [&] { PlantLink("a/b", true); });
                ThrownText(change);
            }
            ASSERT_EQ(tests::SnapshotOf(Outside()), outside) << step;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Resolvers, SwappedParent, testing::Values(EResolver::eKernel, EResolver::eWalk));

}  // namespace
}  // namespace agent::query
