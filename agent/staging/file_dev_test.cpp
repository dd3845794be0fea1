#include "agent/staging/file_dev.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <thread>

#include "agent/meta/item_warnings.h"
#include "mirrowen/exc/already_exists_exc.h"
#include "mirrowen/exc/not_impl_exc.h"
#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/posix/errno_exc.h"
#include "tests/support/as_nobody.h"
#include "tests/support/faulty_syscalls.h"
#include "tests/support/log_capture.h"
#include "tests/support/staging_fixture.h"

namespace agent {
namespace {

namespace fs = std::filesystem;
using tests::AreaOf;
using tests::ReadFile;
using tests::TextOf;
using tests::WriteFile;
using tests::ZeroesOf;

class FileDev : public tests::staging_fixture_t {
  protected:
    static item_t WithInfo(const std::string& path) {
        item_t item = File(path);
        item.info.type = util::EFileType::eRegular;
        item.info.owner = {"", 1234};
        item.info.group = {"", 2345};
        item.info.mode = 04751;
        item.info.accessTime = {1000000000, 5};
        item.info.modificationTime = {1100000000, 999999999};
        item.info.attributes = {{"user.tarn", "kept"}};
        return item;
    }
};

TEST_F(FileDev, FileArrivesWithContentAndAttributes) {
    Receive(WithInfo("a/new"), "content");
    struct stat found {};
    ASSERT_EQ(::stat((Inside() / "a/new").c_str(), &found), 0);
    EXPECT_EQ(ReadFile(Inside() / "a/new"), "content");
    EXPECT_EQ(found.st_mode, S_IFREG | 04751U);
    EXPECT_EQ(found.st_uid, 1234U);
    EXPECT_EQ(found.st_gid, 2345U);
    EXPECT_EQ(found.st_mtim.tv_sec, 1100000000);
    EXPECT_EQ(found.st_mtim.tv_nsec, 999999999);
    EXPECT_EQ(Staged().size(), 0U);
}

TEST_F(FileDev, NothingIsVisibleBeforeTheEnd) {
    const auto before = tests::SnapshotOf(Inside() / "a");
    const dev_t dev = Make(File("a/new"), 7);
    dev->Write(AreaOf("content", 0));
    EXPECT_EQ(tests::SnapshotOf(Inside() / "a"), before);
    ASSERT_EQ(Staged().size(), 1U);
    EXPECT_EQ(fs::status(Inside() / ".tarn-staging" / Staged().front()).permissions(),
              fs::perms::owner_read | fs::perms::owner_write);
    EXPECT_EQ(dev->GetDisplayName(), (Inside() / "a/new").string());
    dev->Finish(nullptr);
    EXPECT_EQ(ReadFile(Inside() / "a/new"), "content");
}

TEST_F(FileDev, FileWithoutAttributesStaysPrivate) {
    Receive(File("new"), "x");
    EXPECT_EQ(fs::status(Inside() / "new").permissions(), fs::perms::owner_read | fs::perms::owner_write);
}

TEST_F(FileDev, ZeroRunsOfAFileOfKnownSizeStayHoles) {
    constexpr std::uint64_t size = 8 << 20;
    const dev_t dev = Make(File("sparse"), size + 4);
    dev->Write(ZeroesOf(size, 0));
    dev->Write(AreaOf("tail", size));
    dev->Finish(nullptr);
    struct stat found {};
    ASSERT_EQ(::stat((Inside() / "sparse").c_str(), &found), 0);
    EXPECT_EQ(static_cast<std::uint64_t>(found.st_size), size + 4);
    EXPECT_LT(found.st_blocks * 512, 1 << 20);
    EXPECT_EQ(ReadFile(Inside() / "sparse"), std::string(size, '\0') + "tail");
}

TEST_F(FileDev, SizeZeroMeansUnknown) {
    const dev_t dev = Make(File("grown"), 0);
    dev->Write(AreaOf("first", 0));
    dev->Write(ZeroesOf(3, 5));
    dev->Finish(nullptr);
    EXPECT_EQ(ReadFile(Inside() / "grown"), std::string("first\0\0\0", 8));
    Receive(File("empty"), "");
    EXPECT_EQ(fs::file_size(Inside() / "empty"), 0U);
}

TEST_F(FileDev, FileThatIsNotAsLongAsDeclaredIsNoSuccess) {
    for (const std::string& text : {std::string("short"), std::string("longer than said")}) {
        const dev_t dev = Make(File("wrong"), 10);
        dev->Write(AreaOf(text, 0));
        EXPECT_EQ(TextOf([&] { dev->Finish(nullptr); }), "Item [" + (Inside() / "wrong").string() + "] ended after [" +
                                                             std::to_string(text.size()) +
                                                             "] bytes, but [10] were declared.");
    }
    EXPECT_FALSE(fs::exists(Inside() / "wrong"));
    EXPECT_EQ(Staged().size(), 0U);
}

TEST_F(FileDev, SizeThatNoFileCanHaveIsRefused) {
    EXPECT_NE(TextOf([&] { Make(File("giant"), ~0UL); }), "");
    EXPECT_EQ(Staged().size(), 0U);
}

TEST_F(FileDev, MissingParentsAreMadeForTheOwnerOnly) {
    Receive(File("p/q/new"), "x");
    EXPECT_EQ(ReadFile(Inside() / "p/q/new"), "x");
    EXPECT_EQ(fs::status(Inside() / "p").permissions(), fs::perms::owner_all);
    EXPECT_EQ(fs::status(Inside() / "p/q").permissions(), fs::perms::owner_all);
}

TEST_F(FileDev, LongAndOddNamesArrive) {
    const std::string odd = "\xff\xfe\n/" + std::string(255, '\xe9');
    Receive(File(odd), "x");
    EXPECT_EQ(ReadFile(Inside() / odd), "x");
}

TEST_F(FileDev, WithoutOverwritingWhatIsThereIsToldAtOnce) {
    fs::create_symlink("nowhere", Inside() / "dangling");
    const auto before = tests::SnapshotOf(Inside());
    for (const char* name : {"top", "dangling", "a"}) {
        EXPECT_THROW(Make(File(name)), exc::CAlreadyExistsExc) << name;
    }
    EXPECT_EQ(tests::SnapshotOf(Inside()), before);
}

TEST_F(FileDev, WithoutOverwritingWhatComesBeforeTheRenameIsTold) {
    const dev_t dev = Make(File("late"), 3);
    dev->Write(AreaOf("new", 0));
    WriteFile(Inside() / "late", "old");
    try {
        dev->Finish(nullptr);
        FAIL() << "the file was replaced";
    } catch (const exc::CAlreadyExistsExc& error) {
        EXPECT_EQ(error.what(), "[" + (Inside() / "late").string() + "] exists already.");
    }
    EXPECT_EQ(ReadFile(Inside() / "late"), "old");
}

TEST_F(FileDev, WithoutOverwritingNothingIsReplacedHoweverLateItComes) {
    int refusals = 0;
    for (int step = 0;; ++step) {
        SCOPED_TRACE("before step " + std::to_string(step));
        StartOver();
        const tests::step_hook_t hook(step, [&] { WriteFile(Inside() / "late", "old"); });
        try {
            Receive(File("late"), "new");
        } catch (const exc::CAlreadyExistsExc&) {
            ++refusals;
            EXPECT_EQ(ReadFile(Inside() / "late"), "old");
        }
        EXPECT_EQ(Staged().size(), 0U);
        if (!hook.HasRun()) {
            break;
        }
    }
    EXPECT_GT(refusals, 3);
}

TEST_F(FileDev, OverwritingReplacesAFileInOneStep) {
    const auto reader = Root().OpenFile("a/b/x");
    Receive(File("a/b/x"), "new", true);
    EXPECT_EQ(ReadFile(Inside() / "a/b/x"), "new");
    EXPECT_EQ(tests::ReadAll(*reader), "inside");
}

TEST_F(FileDev, OverwritingReplacesALinkAndNotItsTarget) {
    fs::create_symlink(Outside() / "b/x", Inside() / "link");
    Receive(File("link"), "new", true);
    EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(Inside() / "link")));
    EXPECT_EQ(ReadFile(Outside() / "b/x"), "secret");
}

TEST_F(FileDev, OverwritingNeverReplacesADirectory) {
    const std::string shown = (Inside() / "a").string();
    EXPECT_EQ(TextOf([&] { Make(File("a"), 0, true); }), "[" + shown + "] is a directory and is not replaced.");
    const dev_t dev = Make(File("late"), 3, true);
    dev->Write(AreaOf("new", 0));
    fs::create_directory(Inside() / "late");
    EXPECT_EQ(TextOf([&] { dev->Finish(nullptr); }),
              "Failed to rename to [" + (Inside() / "late").string() + "]: Is a directory");
    EXPECT_TRUE(fs::is_directory(Inside() / "late"));
}

TEST_F(FileDev, DeviceThatIsNotFinishedLeavesNothing) {
    const auto before = tests::SnapshotOf(Inside() / "a");
    {
        const dev_t dev = Make(File("a/b/x"), 100, true);
        dev->Write(AreaOf("some", 0));
        EXPECT_EQ(Staged().size(), 1U);
    }
    EXPECT_EQ(Staged().size(), 0U);
    EXPECT_EQ(tests::SnapshotOf(Inside() / "a"), before);
}

TEST_F(FileDev, FullDiskLeavesTheOldFileAndNothingElse) {
    const dev_t dev = Make(File("top"), 3, true);
    {
        tests::faulty_syscalls_t calls;
        calls.Fail<&posix::syscalls_t::write>(ENOSPC);
        EXPECT_NE(TextOf([&] { dev->Write(AreaOf("new", 0)); }).find("No space left on device"), std::string::npos);
    }
    EXPECT_EQ(ReadFile(Inside() / "top"), "top");
}

TEST_F(FileDev, FailedWriteGivesTheRoomBackBeforeTheDeviceGoes) {
    const dev_t dev = Make(File("a/new"), 7);
    dev->Write(AreaOf("con", 0));
    {
        tests::faulty_syscalls_t calls;
        calls.Fail<&posix::syscalls_t::write>(ENOSPC);
        EXPECT_NE(TextOf([&] { dev->Write(AreaOf("tent", 3)); }), "");
    }
    ASSERT_EQ(Staged().size(), 1U);
    EXPECT_EQ(fs::file_size(Inside() / ".tarn-staging" / Staged().front()), 0U);
}

TEST_F(FileDev, FailedSyncLeavesTheOldFileAndNothingElse) {
    const tests::log_capture_t log;  // the stream tells that it could not be closed well
    {
        const dev_t dev = Make(File("top"), 3, true);
        dev->Write(AreaOf("new", 0));
        tests::faulty_syscalls_t calls;
        calls.Fail<&posix::syscalls_t::fsync>(EIO);
        EXPECT_NE(TextOf([&] { dev->Finish(nullptr); }).find("Input/output error"), std::string::npos);
    }
    EXPECT_EQ(ReadFile(Inside() / "top"), "top");
    EXPECT_EQ(Staged().size(), 0U);
}

TEST_F(FileDev, FailedSyncOfTheDirectoryIsToldAndTheFileIsWhole) {
    {
        const dev_t dev = Make(File("new"), 3);
        dev->Write(AreaOf("new", 0));
        tests::faulty_syscalls_t calls;
        calls.Fail<&posix::syscalls_t::fsync>(EIO, 2);
        EXPECT_EQ(TextOf([&] { dev->Finish(nullptr); }),
                  "Failed to sync [" + (Inside() / "new").string() + "]: Input/output error");
    }
    EXPECT_EQ(ReadFile(Inside() / "new"), "new");
}

TEST_F(FileDev, DirectoryThatVanishesBeforeTheEndIsMadeAgain) {
    const dev_t dev = Make(File("a/b/new"), 3);
    dev->Write(AreaOf("new", 0));
    fs::remove_all(Inside() / "a");
    dev->Finish(nullptr);
    EXPECT_EQ(ReadFile(Inside() / "a/b/new"), "new");
}

TEST_F(FileDev, DirectoryThatVanishesAtTheLastMomentIsAnErrorAndLeavesNothing) {
    int failures = 0;
    for (int step = 0;; ++step) {
        SCOPED_TRACE("before step " + std::to_string(step));
        StartOver();
        const tests::step_hook_t hook(step, [&] { fs::remove_all(Inside() / "a"); });
        const std::string text = TextOf([&] { Receive(File("a/b/new"), "new"); });
        if (!text.empty()) {
            ++failures;
            EXPECT_NE(text.find("a/b"), std::string::npos) << text;
            EXPECT_FALSE(fs::exists(Inside() / "a/b/new"));
        }
        EXPECT_EQ(Staged().size(), 0U);
        if (!hook.HasRun()) {
            break;
        }
    }
    EXPECT_GT(failures, 0);
}

TEST_F(FileDev, AnotherFileSystemBelowTheRootIsNamedAsTheReason) {
    tests::faulty_syscalls_t calls;
    calls.Fail<&posix::syscalls_t::renameat2>(EXDEV);
    EXPECT_NE(TextOf([&] { Receive(File("mounted"), "x"); }).find("Invalid cross-device link"), std::string::npos);
    EXPECT_EQ(Staged().size(), 0U);
}

TEST_F(FileDev, ADirectorySwappedForALinkBetweenAnyTwoStepsLeadsNowhere) {
    for (const char* swapped : {"a", "a/b"}) {
        for (int step = 0;; ++step) {
            SCOPED_TRACE(std::string(swapped) + " swapped before step " + std::to_string(step));
            StartOver();
            const auto before = tests::SnapshotOf(Outside());
            const tests::step_hook_t hook(step, [&] { PlantLink(swapped, true); });
            TextOf([&] { Receive(WithInfo("a/b/x"), "evil", true); });
            EXPECT_EQ(tests::SnapshotOf(Outside()), before);
            EXPECT_EQ(Staged().size(), 0U);
            if (!hook.HasRun()) {
                EXPECT_GT(step, 5);
                break;
            }
        }
    }
}

TEST_F(FileDev, StepsOfTheEndComeInOrder) {
    static std::string s_steps;
    s_steps.clear();
    posix::syscalls_t table = posix::sys();
    table.fchmod = [](int fd, mode_t mode) {
        s_steps += "mode ";
        return posix::real_syscalls().fchmod(fd, mode);
    };
    table.futimens = [](int fd, const timespec* times) {
        s_steps += "times ";
        return posix::real_syscalls().futimens(fd, times);
    };
    table.fsync = [](int fd) {
        struct stat found {};
        posix::real_syscalls().fstat(fd, &found);
        s_steps += S_ISDIR(found.st_mode) ? "sync-directory " : "sync-file ";
        return posix::real_syscalls().fsync(fd);
    };
    table.renameat2 = [](int fromDir, const char* from, int toDir, const char* to, unsigned int flags) {
        s_steps += "rename ";
        return posix::real_syscalls().renameat2(fromDir, from, toDir, to, flags);
    };
    const posix::scoped_syscalls_t scope(table);
    Receive(WithInfo("new"), "x");
    EXPECT_EQ(s_steps, "mode times sync-file rename sync-directory ");
    s_steps.clear();
    Receive(WithInfo("empty"), "");
    EXPECT_EQ(s_steps, "mode times sync-file rename sync-directory ");
}

TEST_F(FileDev, EveryNewDirectoryIsMadeDurableBeforeTheFile) {
    tests::faulty_syscalls_t calls;
    calls.Watch<&posix::syscalls_t::fsync>();
    Receive(File("p/q/new"), "x");
    EXPECT_EQ(calls.Count<&posix::syscalls_t::fsync>(), 4) << "the root for p, p for q, the file, q for the file";
}

TEST_F(FileDev, BareBytesAndBlocksOutOfOrderAreRefused) {
    const dev_t dev = Make(File("new"), 8);
    EXPECT_THROW(dev->Write(std::make_shared<io::area::area_t>()), exc::CNotImplExc);
    EXPECT_THROW(dev->Write(AreaOf("tail", 4)), exc::CRuntimeExc);
}

TEST_F(FileDev, NoWayThroughLeaksADescriptor) {
    const std::size_t before = tests::CountDescriptors();
    Receive(WithInfo("one"), "x");
    EXPECT_THROW(Receive(File("one"), "x"), exc::CAlreadyExistsExc);
    TextOf([&] { Receive(File("a"), "x", true); });
    TextOf([&] { Receive(File("../x"), "x", true); });
    TextOf([&] { Make(File("giant"), ~0UL); });
    Make(File("unfinished"), 10);
    EXPECT_EQ(tests::CountDescriptors(), before);
}

TEST_F(FileDev, WhatLacksPrivilegeIsAWarningOfTheThreadThatMadeTheDevice) {
    DropReceiver();
    ASSERT_EQ(::chown(Inside().c_str(), 65534, 65534), 0);
    const std::string answer = tests::RunAsNobody([&] {
        const auto warnings = std::make_shared<item_warnings_t>();
        staging_receiver_t receiver(std::make_shared<staging_t>(RootPtr()));
        dev_t dev;
        {
            const warning_scope_t scope(warnings);
            item_t item = WithInfo("new");
            item.info.attributes.clear();
            dev = receiver.Receive(item, 1, EReplace::eNo);
        }
        std::thread([&] {
            dev->Write(AreaOf("x", 0));
            dev->Finish(nullptr);
        }).join();
        std::string text;
        for (const item_warning_t& warning : warnings->Get()) {
            text += warning.kind == util::EMetaProblem::eNoPrivilege ? warning.text + "\n" : "unexpected\n";
        }
        return text;
    });
    const std::string shown = "[" + (Inside() / "new").string() + "]: Operation not permitted\n";
    EXPECT_EQ(answer, "Failed to set owner of " + shown + "Failed to set group of " + shown +
                          "Failed to set set-ID bits of the mode of " + shown);
    EXPECT_EQ(ReadFile(Inside() / "new"), "x");
    EXPECT_EQ(fs::status(Inside() / "new").permissions(), static_cast<fs::perms>(0751));
}

TEST_F(FileDev, DirectoryThatMayNotBeWrittenIsNamedAndNothingIsLeft) {
    DropReceiver();
    ASSERT_EQ(::chown(Inside().c_str(), 65534, 65534), 0);
    const std::string answer = tests::RunAsNobody([&] {
        staging_receiver_t receiver(std::make_shared<staging_t>(RootPtr()));
        return TextOf([&] { receiver.Receive(File("a/new"), 0, EReplace::eNo)->Finish(nullptr); });
    });
    EXPECT_EQ(answer, "Failed to rename to [" + (Inside() / "a/new").string() + "]: Permission denied");
    EXPECT_EQ(tests::SnapshotOf(Inside()).count(".tarn-staging"), 0U);
}

TEST_F(FileDev, WhatFailsForAnotherReasonFailsTheItem) {
    tests::faulty_syscalls_t calls;
    calls.Fail<&posix::syscalls_t::fchmod>(EIO);
    const std::string shown = (Inside() / "new").string();
    EXPECT_EQ(TextOf([&] { Receive(WithInfo("new"), "x"); }), "Failed to apply the attributes of [" + shown +
                                                                  "]: Failed to set mode of [" + shown +
                                                                  "]: Input/output error.");
    EXPECT_FALSE(fs::exists(Inside() / "new"));
    EXPECT_EQ(Staged().size(), 0U);
}

}  // namespace
}  // namespace agent
