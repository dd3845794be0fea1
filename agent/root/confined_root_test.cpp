#include "agent/root/confined_root.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <cerrno>

#include "mirrowen/exc/already_exists_exc.h"
#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/posix/errno_exc.h"
#include "tests/support/as_nobody.h"
#include "tests/support/faulty_syscalls.h"
#include "tests/support/root_fixture.h"

namespace agent {
namespace {

using namespace std::string_literals;
namespace fs = std::filesystem;

class ConfinedRoot : public tests::root_fixture_t, public testing::WithParamInterface<EResolver> {
  protected:
    ConfinedRoot() : root_fixture_t(GetParam()) {}

    void SetUp() override { SkipWithoutKernel(); }
};

INSTANTIATE_TEST_SUITE_P(BothResolvers, ConfinedRoot, testing::Values(EResolver::eKernel, EResolver::eWalk),
                         [](const auto& one) { return one.param == EResolver::eKernel ? "Kernel" : "Walk"; });

int ErrnoOf(const std::function<void()>& call) {
    try {
        call();
    } catch (const posix::errno_exc_t& error) {
        return error.GetErrno();
    }
    return 0;
}

std::string TextOf(const std::function<void()>& call) {
    try {
        call();
    } catch (const std::exception& error) {
        return error.what();
    }
    return {};
}

TEST_P(ConfinedRoot, ResolverIsTheOneThatTheKernelOffers) {
    EXPECT_EQ(Root().GetResolver(), GetParam());
}

TEST_P(ConfinedRoot, CreatesWritesAndReadsAFileBelowDirectories) {
    Root().MakeDirectory("d");
    Root().MakeDirectory("d/e", 0711);
    Root().CreateFile("d/e/f")->Write("content", 7);
    char buffer[16] = {};
    EXPECT_EQ(Root().OpenFile("d/e/f")->Read(buffer, sizeof buffer), 7U);
    EXPECT_STREQ(buffer, "content");
    EXPECT_EQ(Root().Stat("d/e/f").st_mode, S_IFREG | 0600U);
    EXPECT_EQ(Root().Stat("d").st_mode & 07777U, 0700U);
    EXPECT_EQ(Root().Stat("d/e").st_mode & 07777U, 0711U);
}

TEST_P(ConfinedRoot, NamesAreBytes) {
    const std::string odd = "\xff\xfe\x80 \n\x01";
    const std::string longest(255, '\xe9');
    Root().MakeDirectory(odd);
    Root().CreateFile(odd + "/" + longest);
    EXPECT_EQ(Root().List(odd, EOrder::eRaw), std::vector<std::string>{longest});
    EXPECT_TRUE(S_ISREG(Root().Stat(odd + "/" + longest).st_mode));
    Root().RemoveFile(odd + "/" + longest);
    EXPECT_FALSE(Root().TryStat(odd + "/" + longest));
}

TEST_P(ConfinedRoot, CreationRefusesWhatIsThereAlready) {
    tests::WriteFile(Inside() / "file", "old");
    fs::create_symlink("nowhere", Inside() / "dangling");
    for (const char* name : {"file", "dangling", "a"}) {
        EXPECT_THROW(Root().CreateFile(name), exc::CAlreadyExistsExc) << name;
        EXPECT_THROW(Root().MakeDirectory(name), exc::CAlreadyExistsExc) << name;
        EXPECT_THROW(Root().MakeLink("x", name), exc::CAlreadyExistsExc) << name;
    }
    EXPECT_EQ(TextOf([&] { Root().CreateFile("file"); }), "[" + (Inside() / "file").string() + "] exists already.");
    EXPECT_EQ(tests::ReadFile(Inside() / "file"), "old");
}

TEST_P(ConfinedRoot, LinksAreMadeReadAndExaminedButNeverFollowed) {
    Root().MakeLink("/etc/passwd", "a/l");
    EXPECT_EQ(Root().ReadLink("a/l"), "/etc/passwd");
    EXPECT_TRUE(S_ISLNK(Root().Stat("a/l").st_mode));
    EXPECT_EQ(TextOf([&] { Root().OpenFile("a/l"); }), "[" + (Inside() / "a/l").string() + "] is not a regular file.");
    EXPECT_NE(ErrnoOf([&] { Root().OpenDirectory("a/l"); }), 0);
    struct stat found {};
    ASSERT_EQ(::fstat(Root().OpenObject("a/l").get(), &found), 0);
    EXPECT_TRUE(S_ISLNK(found.st_mode));
    const std::string longTarget(4095, 't');
    Root().MakeLink(longTarget, "long");
    EXPECT_EQ(Root().ReadLink("long"), longTarget);
    EXPECT_EQ(ErrnoOf([&] { Root().ReadLink("a"); }), EINVAL);
    EXPECT_EQ(TextOf([&] { Root().MakeLink("x\0y"s, "nul"); }),
              "The target of link [" + (Inside() / "nul").string() + "] contains a NUL byte.");
}

TEST_P(ConfinedRoot, OnlyRegularFilesAreOpenedForReading) {
    ASSERT_EQ(::mkfifo((Inside() / "pipe").c_str(), 0600), 0);
    for (const char* name : {"pipe", "a"}) {
        EXPECT_EQ(TextOf([&] { Root().OpenFile(name); }),
                  "[" + (Inside() / name).string() + "] is not a regular file.");
    }
    EXPECT_EQ(ErrnoOf([&] { Root().OpenFile("missing"); }), ENOENT);
}

TEST_P(ConfinedRoot, ListsInByteOrderWithoutTheStagingFolder) {
    fs::create_directory(Inside() / ".tarn-staging");
    fs::create_directory(Inside() / "a/.tarn-staging");
    for (const char* name : {"b", "B", "\xff", "z", "-"}) {
        tests::WriteFile(Inside() / name, "");
    }
    const std::vector<std::string> expected = {"-", "B", "a", "b", "top", "z", "\xff"};
    EXPECT_EQ(Root().ListTop(EOrder::eSorted), expected);
    EXPECT_EQ(Root().ListTop(EOrder::eRaw).size(), expected.size());
    EXPECT_EQ(Root().List("a", EOrder::eSorted), (std::vector<std::string>{".tarn-staging", "b"}));
    EXPECT_EQ(ErrnoOf([&] { Root().List("b", EOrder::eRaw); }), ENOTDIR);
}

TEST_P(ConfinedRoot, RemovesFilesLinksAndEmptyDirectoriesOnly) {
    fs::create_symlink(Outside() / "b/x", Inside() / "link");
    const auto before = tests::SnapshotOf(Outside());
    Root().RemoveFile("link");
    EXPECT_EQ(tests::SnapshotOf(Outside()), before);
    EXPECT_NE(ErrnoOf([&] { Root().RemoveFile("a"); }), 0);
    EXPECT_EQ(ErrnoOf([&] { Root().RemoveDirectory("a"); }), ENOTEMPTY);
    Root().RemoveFile("a/b/x");
    Root().RemoveDirectory("a/b");
    EXPECT_FALSE(fs::exists(Inside() / "a/b"));
    EXPECT_EQ(ErrnoOf([&] { Root().RemoveFile("a/b"); }), ENOENT);
}

TEST_P(ConfinedRoot, RenamesWithAndWithoutReplacing) {
    tests::WriteFile(Inside() / "one", "1");
    tests::WriteFile(Inside() / "two", "2");
    EXPECT_THROW(Root().Rename("one", "a/b/x", EReplace::eNo), exc::CAlreadyExistsExc);
    Root().Rename("one", "a/new", EReplace::eNo);
    EXPECT_EQ(tests::ReadFile(Inside() / "a/new"), "1");
    Root().Rename("two", "a/new", EReplace::eYes);
    EXPECT_EQ(tests::ReadFile(Inside() / "a/new"), "2");
    EXPECT_EQ(ErrnoOf([&] { Root().Rename("a/new", "a/b", EReplace::eYes); }), EISDIR);
    EXPECT_EQ(ErrnoOf([&] { Root().Rename("missing", "m", EReplace::eYes); }), ENOENT);
}

TEST_P(ConfinedRoot, ParentsAreMadeOnRequestOnlyAndForNobodyElse) {
    EXPECT_EQ(ErrnoOf([&] { Root().OpenParent("p/q/r/file"); }), ENOENT);
    const place_t place = Root().OpenParent("p/q/r/file", EParents::eMake);
    EXPECT_EQ(place.last, "file");
    for (const char* made : {"p", "p/q", "p/q/r"}) {
        EXPECT_EQ(Root().Stat(made).st_mode, S_IFDIR | 0700U) << made;
    }
    EXPECT_FALSE(Root().TryStat("p/q/r/file"));
    EXPECT_NO_THROW(Root().OpenParent("p/q/other/file", EParents::eMake));
    tests::WriteFile(Inside() / "plain", "");
    EXPECT_EQ(ErrnoOf([&] { Root().OpenParent("plain/x", EParents::eMake); }), ENOTDIR);
}

TEST_P(ConfinedRoot, ErrorsNameThePathAndTheReason) {
    EXPECT_EQ(TextOf([&] { Root().Stat("a/missing"); }),
              "Failed to get attributes of [" + (Inside() / "a/missing").string() + "]: No such file or directory");
    const confined_root_t nameless(Root().OpenTop(), ".");
    EXPECT_EQ(TextOf([&] { nameless.Stat("a/missing"); }),
              "Failed to get attributes of [a/missing]: No such file or directory");
    EXPECT_EQ(nameless.Shown(""), ".");
}

TEST_P(ConfinedRoot, OpeningARootThatIsMissingOrAFileFails) {
    EXPECT_EQ(ErrnoOf([&] { confined_root_t::Open(Inside() / "missing"); }), ENOENT);
    EXPECT_EQ(ErrnoOf([&] { confined_root_t::Open(Inside() / "a/b/x"); }), ENOTDIR);
}

TEST_P(ConfinedRoot, EveryOperationRefusesEveryUnsafeName) {
    const std::string corpus[] = {"",
                                  "/",
                                  "/etc/passwd",
                                  "..",
                                  "../outside/b/x",
                                  "a/../../outside/b/x",
                                  "a/..",
                                  ".",
                                  "./a",
                                  "a/./b",
                                  "a//b",
                                  "a/",
                                  "a\0/b"s,
                                  "\0"s,
                                  "x\0"s,
                                  std::string(256, 'n'),
                                  std::string(5000, 'n'),
                                  ".tarn-staging",
                                  ".tarn-staging/lock",
                                  ".TARN-staging/lock"};
    const auto before = tests::SnapshotOf(Top());
    for (const std::string& name : corpus) {
        for (const tests::root_operation_t& operation : tests::RootOperations()) {
            const std::string text = TextOf([&] { operation.call(Root(), name); });
            EXPECT_NE(text.find("is refused: "), std::string::npos) << operation.name << " of " << name << ": " << text;
        }
    }
    EXPECT_EQ(tests::SnapshotOf(Top()), before);
}

TEST_P(ConfinedRoot, NoOperationLeavesThroughALinkAtAnyPosition) {
    for (const bool absolute : {true, false}) {
        for (const char* planted : {"a", "a/b", "a/b/x"}) {
            for (const tests::root_operation_t& operation : tests::RootOperations()) {
                SCOPED_TRACE(operation.name + " with a link at " + planted);
                MakeTree();
                PlantLink(planted, absolute);
                const auto before = tests::SnapshotOf(Outside());
                const std::string text = TextOf([&] { EXPECT_NE(operation.call(Root(), "a/b/x"), "secret"); });
                EXPECT_EQ(tests::SnapshotOf(Outside()), before);
                if (planted != "a/b/x"s) {
                    EXPECT_NE(text.find("Too many levels of symbolic links"), std::string::npos) << text;
                }
            }
        }
    }
}

TEST_P(ConfinedRoot, NoOperationFollowsALinkThatStaysInside) {
    fs::create_directory(Inside() / ".tarn-staging");
    tests::WriteFile(Inside() / ".tarn-staging/x", "staged");
    fs::create_symlink(".tarn-staging", Inside() / "door");
    for (const tests::root_operation_t& operation : tests::RootOperations()) {
        EXPECT_EQ(ErrnoOf([&] { operation.call(Root(), "door/x"); }), ELOOP) << operation.name;
    }
    EXPECT_EQ(tests::ReadFile(Inside() / ".tarn-staging/x"), "staged");
}

TEST_P(ConfinedRoot, ADirectorySwappedForALinkBetweenAnyTwoStepsLeadsNowhere) {
    for (const char* swapped : {"a", "a/b", "a/b/x"}) {
        for (const tests::root_operation_t& operation : tests::RootOperations()) {
            int step = 0;
            for (bool reached = true; reached; ++step) {
                SCOPED_TRACE(operation.name + ", " + swapped + " swapped before step " + std::to_string(step));
                MakeTree();
                const auto before = tests::SnapshotOf(Outside());
                const tests::step_hook_t hook(step, [&] { PlantLink(swapped, true); });
                TextOf([&] { EXPECT_NE(operation.call(Root(), "a/b/x"), "secret"); });
                EXPECT_EQ(tests::SnapshotOf(Outside()), before);
                reached = hook.HasRun();
            }
            EXPECT_GT(step, 1) << operation.name << " made no system call";
        }
    }
}

TEST_P(ConfinedRoot, NoOperationLeaksADescriptor) {
    const std::size_t before = tests::CountDescriptors();
    for (const tests::root_operation_t& operation : tests::RootOperations()) {
        for (const char* name : {"a/b/x", "a/b/missing", "a/b/x/below", "missing/x", "../x"}) {
            MakeTree();
            TextOf([&] { operation.call(Root(), name); });
            EXPECT_EQ(tests::CountDescriptors(), before) << operation.name << " of " << name;
        }
    }
    Root().ListTop(EOrder::eRaw);
    EXPECT_EQ(tests::CountDescriptors(), before);
}

TEST_P(ConfinedRoot, DescriptorsAreClosedInAnotherProgram) {
    EXPECT_EQ(::fcntl(Root().OpenParent("a/b/x").parent.get(), F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(::fcntl(Root().OpenFile("a/b/x")->GetDescriptor(), F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(::fcntl(Root().OpenDirectory("a/b").get(), F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(::fcntl(Root().OpenObject("a/b/x").get(), F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(::fcntl(Root().CreateFile("a/n")->GetDescriptor(), F_GETFD), FD_CLOEXEC);
}

TEST_P(ConfinedRoot, WithoutPermissionTheReasonIsNamed) {
    ASSERT_EQ(::chmod((Inside() / "a").c_str(), 0755), 0);
    ASSERT_EQ(::chmod((Inside() / "a/b/x").c_str(), 0600), 0);
    const std::string denied = "EACCES EACCES EACCES";
    const std::string answer = tests::RunAsNobody([&] {
        const auto name = [](int error) { return error == EACCES ? "EACCES" : "another result"; };
        return std::string(name(ErrnoOf([&] { Root().CreateFile("a/new"); }))) + " " +
               name(ErrnoOf([&] { Root().RemoveFile("a/b/x"); })) + " " +
               name(ErrnoOf([&] { Root().OpenFile("a/b/x"); }));
    });
    EXPECT_EQ(answer, denied);
}

class KernelResolver : public tests::root_fixture_t {
  protected:
    KernelResolver() : root_fixture_t(EResolver::eKernel) {}

    void SetUp() override { SkipWithoutKernel(); }
};

TEST_F(KernelResolver, ThatIsBusyIsAskedAgainButNotForEver) {
    tests::faulty_syscalls_t calls;
    calls.Fail<&posix::syscalls_t::openat2>(EAGAIN, 1, 5);
    EXPECT_NO_THROW(Root().Stat("a/b/x"));
    EXPECT_EQ(calls.Count<&posix::syscalls_t::openat2>(), 6);
    calls.Fail<&posix::syscalls_t::openat2>(EAGAIN, 1, 1000000);
    EXPECT_EQ(ErrnoOf([&] { Root().Stat("a/b/x"); }), EAGAIN);
    EXPECT_LT(calls.Count<&posix::syscalls_t::openat2>(), 1000);
}

}  // namespace
}  // namespace agent
