#include "agent/staging/commit_dev.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

#include "agent/staging/report_kind.h"
#include "mirrowen/exc/already_exists_exc.h"
#include "mirrowen/exc/runtime_exc.h"
#include "tests/support/as_nobody.h"
#include "tests/support/fake_clock.h"
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
using reports_t = std::vector<brannock::transmission::entry_report_t>;

const char* const kCopy = "{00000000-0000-0000-0000-000000000000}";

class CommitDev : public tests::staging_fixture_t {
  protected:
    void Defer(const item_t& item, std::uint64_t entry, const std::string& text = {}, bool overwrite = false) {
        Receive(Deferred(item, entry), text, overwrite);
    }

    static item_t Directory(const std::string& path, std::uint32_t mode) {
        item_t item = Item(EItemKind::eDirectory, path);
        item.info.type = util::EFileType::eDirectory;
        item.info.owner.id = ::geteuid();
        item.info.group.id = ::getegid();
        item.info.mode = mode;
        item.info.modificationTime = {1100000000, 7};
        return item;
    }

    static item_t HardLink(const std::string& path, const std::string& first) {
        item_t item = Item(EItemKind::eHardLink, path);
        item.second = first;
        return item;
    }

    static item_t OfCopy(item_t item, std::uint8_t number) {
        item.copy = guid::guid_t({number});
        return item;
    }

    std::string Shown(const std::string& name) const { return (Inside() / name).string(); }

    /// What lies below the root and is in sight.
    std::vector<std::string> Visible() const {
        std::vector<std::string> names;
        for (const auto& [name, content] : tests::SnapshotOf(Inside())) {
            if (name.rfind(".tarn-staging", 0) != 0) {
                names.push_back(name);
            }
        }
        return names;
    }
};

TEST_F(CommitDev, NothingIsVisibleBeforeAndEverythingAfter) {
    const auto before = Visible();
    Defer(File("d/one"), 0, "1");
    Defer(Item(EItemKind::eLink, "d/link"), 1);
    Defer(HardLink("d/two", "d/one"), 2);
    Defer(Directory("d", 0750), 3);
    EXPECT_EQ(Visible(), before);
    EXPECT_EQ(Staged().size(), 2U);
    EXPECT_EQ(Commit(4), reports_t());
    EXPECT_EQ(ReadFile(Inside() / "d/one"), "1");
    EXPECT_TRUE(fs::equivalent(Inside() / "d/one", Inside() / "d/two"));
    EXPECT_EQ(fs::read_symlink(Inside() / "d/link"), "target");
    struct stat found {};
    ASSERT_EQ(::stat(Shown("d").c_str(), &found), 0);
    EXPECT_EQ(found.st_mode, S_IFDIR | 0750U);
    EXPECT_EQ(found.st_mtim.tv_sec, 1100000000) << "after its contents";
    EXPECT_EQ(Staged().size(), 0U);
}

TEST_F(CommitDev, GroupThatIsNotWholeIsDroppedWithItsNumbers) {
    Defer(File("new"), 0, "x");
    EXPECT_EQ(TextOf([&] { Commit(2); }), std::string("Copy [") + kCopy + "] has [1] of [2] entries to commit.");
    EXPECT_EQ(Staged().size(), 0U);
    EXPECT_EQ(TextOf([&] { Commit(1); }), std::string("Copy [") + kCopy + "] has [0] of [1] entries to commit.");
    Defer(File("new"), 1, "x");
    EXPECT_NE(TextOf([&] { Commit(1); }), "") << "entry 0 is missing";
    EXPECT_FALSE(fs::exists(Inside() / "new"));
    EXPECT_EQ(Commit(0), reports_t()) << "an empty group";
}

TEST_F(CommitDev, EntryWhoseAcknowledgementWasLostIsDroppedAndTheOthersAreCommitted) {
    Defer(File("new"), 0, "x");
    Defer(File("unheard"), 1, "y");
    EXPECT_EQ(Commit(1), reports_t());
    EXPECT_EQ(ReadFile(Inside() / "new"), "x");
    EXPECT_FALSE(fs::exists(Inside() / "unheard"));
    EXPECT_EQ(Staged().size(), 0U);
}

TEST_F(CommitDev, EntryNumberThatComesAgainReplacesTheEarlier) {
    Defer(File("first"), 0, "lost its acknowledgement");
    Defer(File("second"), 0, "x");
    EXPECT_EQ(Staged().size(), 1U);
    EXPECT_EQ(Commit(1), reports_t());
    EXPECT_FALSE(fs::exists(Inside() / "first"));
    EXPECT_EQ(ReadFile(Inside() / "second"), "x");
}

TEST_F(CommitDev, DeviceOfAnEarlierSessionDoesNotReplaceALaterEntry) {
    const dev_t late = Make(Deferred(File("first"), 0));
    Defer(File("second"), 0, "x");
    late->Finish(nullptr);
    EXPECT_EQ(Commit(1), reports_t());
    EXPECT_FALSE(fs::exists(Inside() / "first"));
    EXPECT_TRUE(fs::exists(Inside() / "second"));
}

TEST_F(CommitDev, ItemThatFailedLeavesItsNumberFree) {
    const dev_t failed = Make(Deferred(File("failed"), 0), 10);
    EXPECT_NE(TextOf([&] { failed->Finish(nullptr); }), "");
    Defer(File("next"), 0, "x");
    EXPECT_EQ(Commit(1), reports_t());
    EXPECT_TRUE(fs::exists(Inside() / "next"));
}

TEST_F(CommitDev, CopiesDoNotMix) {
    Receive(OfCopy(Deferred(File("of one"), 0), 1), "1");
    Receive(OfCopy(Deferred(File("of two"), 0), 2), "2");
    item_t commit = OfCopy(item_t(), 2);
    commit.kind = EItemKind::eCommit;
    commit.entry = 1;
    Make(commit)->Finish(nullptr);
    EXPECT_FALSE(fs::exists(Inside() / "of one"));
    EXPECT_TRUE(fs::exists(Inside() / "of two"));
}

TEST_F(CommitDev, EntryThatFailsIsReportedAndTheOthersGoOn) {
    Defer(File("one"), 0, "1");
    Defer(File("two"), 1, "2");
    Defer(HardLink("three", "none"), 2);
    Defer(File("four"), 3, "4");
    WriteFile(Inside() / "two", "came late");
    const reports_t reports = Commit(4);
    const reports_t expected = {
        {kEntryFailed, 1, Shown("two"), "[" + Shown("two") + "] exists already."},
        {kEntryFailed, 2, Shown("three"), "Failed to link to [" + Shown("none") + "]: No such file or directory"}};
    EXPECT_EQ(reports, expected);
    EXPECT_EQ(ReadFile(Inside() / "two"), "came late");
    EXPECT_EQ(ReadFile(Inside() / "one"), "1");
    EXPECT_EQ(ReadFile(Inside() / "four"), "4");
    EXPECT_EQ(Staged().size(), 0U);
}

TEST_F(CommitDev, OverwriteRuleIsTheEntrysOwn) {
    WriteFile(Inside() / "other", "old");
    Defer(File("top"), 0, "new", true);
    EXPECT_THROW(Make(Deferred(File("other"), 1)), exc::CAlreadyExistsExc);
    EXPECT_EQ(Commit(1), reports_t());
    EXPECT_EQ(ReadFile(Inside() / "top"), "new");
}

TEST_F(CommitDev, FailuresThatNobodyAskedForAreLogged) {
    tests::log_capture_t log;
    Defer(HardLink("three", "none"), 0);
    item_t commit;
    commit.kind = EItemKind::eCommit;
    commit.entry = 1;
    Make(commit)->Finish(nullptr);
    EXPECT_NE(log.Dump().find("An entry of a committed copy failed: [" + Shown("three")), std::string::npos);
}

TEST_F(CommitDev, NobodyHasToReadADirectoryThatIsClosedByItsOwnMode) {
    DropReceiver();
    ASSERT_EQ(::chown(Inside().c_str(), 65534, 65534), 0);
    const std::string answer = tests::RunAsNobody([&] {
        const auto receiver = std::make_shared<staging_receiver_t>(std::make_shared<staging_t>(RootPtr()));
        item_t file = Deferred(File("closed/x"), 0);
        receiver->Receive(file, 0, EReplace::eNo)->Finish(nullptr);
        item_t directory = Deferred(Directory("closed", 0), 1);
        directory.info.owner.id = 65534;
        directory.info.group.id = 65534;
        receiver->Receive(directory, 0, EReplace::eNo)->Finish(nullptr);
        item_t commit;
        commit.kind = EItemKind::eCommit;
        commit.entry = 2;
        const dev_t dev = receiver->Receive(commit, 0, EReplace::eNo);
        dev->Finish(nullptr);
        std::string text;
        for (const auto& report : dynamic_cast<brannock::transmission::IEntryReporter&>(*dev).TakeEntryReports()) {
            text += report.text + "\n";
        }
        return text;
    });
    EXPECT_EQ(answer, "");
    EXPECT_TRUE(fs::exists(Inside() / "closed/x"));
    EXPECT_EQ(fs::status(Inside() / "closed").permissions(), fs::perms::none);
}

/// Writes down what reaches the storage and in which order.
class CommitOrder : public CommitDev {
  protected:
    static std::string Name(int fd) {
        char path[4096];
        const std::string link = "/proc/self/fd/" + std::to_string(fd);
        const ssize_t length = ::readlink(link.c_str(), path, sizeof path);
        const std::string whole(path, length < 0 ? 0 : static_cast<std::size_t>(length));
        return whole.find(".tarn-staging") != std::string::npos ? "staged" : whole.substr(whole.rfind('/') + 1);
    }

    static inline std::vector<std::string> s_steps;

    static posix::syscalls_t Table() {
        s_steps.clear();
        posix::syscalls_t table = posix::sys();
        table.fsync = [](int fd) {
            s_steps.push_back("fsync " + Name(fd));
            return posix::real_syscalls().fsync(fd);
        };
        table.syncfs = [](int fd) {
            s_steps.push_back("syncfs");
            return posix::real_syscalls().syncfs(fd);
        };
        table.renameat2 = [](int fromDir, const char* from, int toDir, const char* to, unsigned int flags) {
            s_steps.push_back(std::string("rename ") + to);
            return posix::real_syscalls().renameat2(fromDir, from, toDir, to, flags);
        };
        return table;
    }
};

TEST_F(CommitOrder, SmallGroupSyncsItsFilesThenRenamesThenSyncsEachDirectoryOnce) {
    const posix::syscalls_t table = Table();
    const posix::scoped_syscalls_t scope(table);
    Defer(File("d/one"), 0, "1");
    Defer(File("d/two"), 1, "2");
    Defer(File("three"), 2, "3");
    EXPECT_EQ(s_steps, std::vector<std::string>()) << "nothing waits before the commit";
    Commit(3);
    EXPECT_EQ(s_steps, (std::vector<std::string>{"fsync staged", "fsync staged", "fsync staged", "rename one",
                                                 "rename two", "rename three", "fsync inside", "fsync d"}));
}

TEST_F(CommitOrder, LargeGroupSyncsTheFileSystemOnceBeforeTheFirstRename) {
    constexpr std::uint64_t count = copy_group_t::kMaxOpenFiles + 1;
    const std::size_t descriptors = tests::CountDescriptors();
    const posix::syscalls_t table = Table();
    const posix::scoped_syscalls_t scope(table);
    for (std::uint64_t entry = 0; entry < count; ++entry) {
        Defer(File("file" + std::to_string(entry)), entry, "x");
    }
    EXPECT_LE(tests::CountDescriptors(), descriptors + 1) << "only the one for the whole file system";
    Commit(count);
    ASSERT_EQ(s_steps.size(), 1 + count + 1);
    EXPECT_EQ(s_steps.front(), "syncfs");
    EXPECT_EQ(s_steps[1], "rename file0");
    EXPECT_EQ(s_steps.back(), "fsync inside");
    EXPECT_EQ(tests::CountDescriptors(), descriptors);
}

TEST_F(CommitOrder, DirectoryIsSyncedWithItsAttributesAfterItsContents) {
    const posix::syscalls_t table = Table();
    const posix::scoped_syscalls_t scope(table);
    Defer(File("d/one"), 0, "1");
    Defer(Directory("d", 0500), 1);
    Commit(2);
    EXPECT_EQ(s_steps, (std::vector<std::string>{"fsync staged", "rename one", "fsync d", "fsync inside"}));
}

TEST_F(CommitOrder, UnsyncedCommitWaitsForNothing) {
    const posix::syscalls_t table = Table();
    const posix::scoped_syscalls_t scope(table);
    Defer(File("p/q/one"), 0, "1");
    Defer(Directory("d", 0700), 1);
    Commit(2, true);
    EXPECT_EQ(s_steps, std::vector<std::string>{"rename one"});
}

TEST_F(CommitOrder, UnsyncedItemOfItsOwnWaitsForNothing) {
    const posix::syscalls_t table = Table();
    const posix::scoped_syscalls_t scope(table);
    for (item_t item : {File("p/q/one"), Item(EItemKind::eLink, "link"), Item(EItemKind::eDirectory, "d"),
                        HardLink("second", "top")}) {
        item.unsynced = true;
        Receive(item, "");
    }
    EXPECT_EQ(s_steps, (std::vector<std::string>{"rename one", "rename link", "rename second"}));
}

TEST_F(CommitDev, StorageThatFailsBeforeTheRenamesLeavesTheOldFiles) {
    for (const bool large : {false, true}) {
        SCOPED_TRACE(large);
        StartOver();
        const std::uint64_t count = large ? copy_group_t::kMaxOpenFiles + 1 : 1;
        Defer(File("top"), 0, "new", true);
        for (std::uint64_t entry = 1; entry < count; ++entry) {
            Defer(File("file" + std::to_string(entry)), entry, "x");
        }
        tests::faulty_syscalls_t calls;
        if (large) {
            calls.Fail<&posix::syscalls_t::syncfs>(EIO);
        } else {
            calls.Fail<&posix::syscalls_t::fsync>(EIO);
        }
        EXPECT_NE(TextOf([&] { Commit(count); }).find("Input/output error"), std::string::npos);
        EXPECT_EQ(ReadFile(Inside() / "top"), "top");
        EXPECT_EQ(Staged().size(), 0U);
    }
}

TEST_F(CommitDev, DirectoryThatDoesNotReachTheStorageFailsItsEntriesOnly) {
    Defer(File("a/one"), 0, "1");
    Defer(File("two"), 1, "2");
    tests::faulty_syscalls_t calls;
    calls.Fail<&posix::syscalls_t::fsync>(EIO, 4);  // the two files, the root, "a"
    const reports_t reports = Commit(2);
    ASSERT_EQ(reports.size(), 1U);
    EXPECT_EQ(reports[0].entry, 0U);
    EXPECT_EQ(reports[0].text, "Failed to sync [" + Shown("a") + "]: Input/output error");
}

TEST_F(CommitDev, DeathAtAnyStepLeavesEachFileOldOrNewAndNothingElse) {
    DropReceiver();
    for (int step = 0;; ++step) {
        SCOPED_TRACE("before step " + std::to_string(step));
        MakeTree();
        const pid_t child = ::fork();
        if (child == 0) {
            const auto receiver = std::make_shared<staging_receiver_t>(std::make_shared<staging_t>(RootPtr()));
            for (const auto& [name, entry] : {std::pair("top", 0U), std::pair("a/b/x", 1U), std::pair("n/new", 2U)}) {
                const dev_t dev = receiver->Receive(Deferred(File(name), entry), 3, EReplace::eYes);
                dev->Write(AreaOf("NEW", 0));
                dev->Finish(nullptr);
            }
            receiver->Receive(Deferred(HardLink("second", "a/b/x"), 3), 0, EReplace::eYes)->Finish(nullptr);
            item_t commit;
            commit.kind = EItemKind::eCommit;
            commit.entry = 4;
            const dev_t dev = receiver->Receive(commit, 0, EReplace::eNo);
            const tests::step_hook_t hook(step, [] { ::_exit(7); });
            dev->Finish(nullptr);
            ::_exit(0);
        }
        int status = -1;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        { const staging_t next(RootPtr()); }
        EXPECT_FALSE(fs::exists(Inside() / ".tarn-staging"));
        const std::string top = ReadFile(Inside() / "top");
        const std::string x = ReadFile(Inside() / "a/b/x");
        EXPECT_TRUE(top == "top" || top == "NEW") << top;
        EXPECT_TRUE(x == "inside" || x == "NEW") << x;
        EXPECT_TRUE(!fs::exists(Inside() / "n/new") || ReadFile(Inside() / "n/new") == "NEW");
        EXPECT_TRUE(x == "NEW" ? top == "NEW" : true) << "in the order of the entries";
        if (WEXITSTATUS(status) == 0) {
            EXPECT_TRUE(fs::equivalent(Inside() / "second", Inside() / "a/b/x"));
            EXPECT_GT(step, 8);
            break;
        }
    }
}

TEST_F(CommitDev, ADirectorySwappedForALinkBetweenAnyTwoStepsLeadsNowhere) {
    for (const char* swapped : {"a", "a/b"}) {
        for (int step = 0;; ++step) {
            SCOPED_TRACE(std::string(swapped) + " swapped before step " + std::to_string(step));
            StartOver();
            const auto before = tests::SnapshotOf(Outside());
            Defer(File("a/b/new"), 0, "evil", true);
            Defer(Directory("a/b", 0700), 1);
            Defer(HardLink("a/second", "a/b/x"), 2, "", true);
            const tests::step_hook_t hook(step, [&] { PlantLink(swapped, true); });
            TextOf([&] { Commit(3); });
            EXPECT_EQ(tests::SnapshotOf(Outside()), before);
            if (!hook.HasRun()) {
                EXPECT_GT(step, 5);
                break;
            }
        }
    }
}

TEST_F(CommitDev, EntryNumberBeyondTheBoundIsRefusedAtOnce) {
    EXPECT_EQ(TextOf([&] { Make(Deferred(File("new"), 1024)); }),
              "Entry [1024] is refused: a group has at most [1024] entries.");
    EXPECT_EQ(Staged().size(), 0U);
    EXPECT_NE(Make(Deferred(File("new"), 1023)), nullptr);
}

TEST_F(CommitDev, GroupsBeyondTheBoundAreRefused) {
    for (std::uint8_t copy = 1; copy <= copy_groups_t::kMaxGroups; ++copy) {
        Receive(OfCopy(Deferred(File("f" + std::to_string(copy)), 0), copy), "");
    }
    EXPECT_EQ(TextOf([&] { Make(OfCopy(Deferred(File("one too many"), 0), 77)); }),
              "A group for copy [{4d000000-0000-0000-0000-000000000000}] is refused: at most [64] groups are kept.");
    Receive(OfCopy(Deferred(File("another"), 1), 1), "");
}

TEST_F(CommitDev, AttributesBeyondTheBoundAreRefusedAndTheGroupGoesOn) {
    item_t directory = Directory("d", 0700);
    for (int count = 0; count < 16; ++count) {
        directory.info.attributes.push_back({"user.a" + std::to_string(count), std::string(65535, 'v')});
    }
    std::uint64_t entry = 0;
    std::string text;
    while (text.empty() && entry < 100) {
        directory.path = "d" + std::to_string(entry);
        text = TextOf([&] { Defer(directory, entry); });
        ++entry;
    }
    EXPECT_EQ(text,
              std::string("The group of copy [") + kCopy + "] has more than [8388608] bytes of paths and attributes.");
    EXPECT_EQ(entry, 8U);
    Defer(File("small"), 0, "x");
    Defer(directory, 1);
}

TEST_F(CommitDev, GroupThatNobodyGoesOnWithIsDropped) {
    const tests::log_capture_t log;
    tests::fake_clock_t clock;
    Defer(File("one"), 0, "1");
    clock.Advance(std::chrono::seconds(119));
    Defer(File("two"), 1, "2");
    clock.Advance(std::chrono::seconds(119));
    Receive(File("top"), "x", true);
    EXPECT_EQ(Staged().size(), 2U) << "used not so long ago";
    clock.Advance(std::chrono::seconds(2));
    Receive(File("top"), "x", true);
    EXPECT_EQ(Staged().size(), 0U);
    EXPECT_NE(log.Dump().find("was not gone on with"), std::string::npos) << log.Dump();
    EXPECT_NE(TextOf([&] { Commit(2); }), "");
}

TEST_F(CommitDev, GroupThatADeviceWorksForIsKept) {
    tests::fake_clock_t clock;
    Defer(File("one"), 0, "1");
    const dev_t slow = Make(Deferred(File("two"), 1));
    clock.Advance(std::chrono::hours(1));
    Receive(File("top"), "x", true);
    slow->Finish(nullptr);
    EXPECT_EQ(Commit(2), reports_t());
}

TEST_F(CommitDev, WarningsOfDirectoriesCarryTheNumbersOfTheirEntries) {
    item_t odd = Directory("odd", 0750);
    odd.info.attributes.push_back({"nowhere.known", "value"});
    Defer(File("file"), 0, "1");
    Defer(Directory("plain", 0750), 1);
    Defer(odd, 2);
    const reports_t reports = Commit(3);
    ASSERT_EQ(reports.size(), 1U);
    EXPECT_NE(reports[0].kind, kEntryFailed);
    EXPECT_EQ(reports[0].entry, 2U);
    EXPECT_EQ(reports[0].path, Shown("odd"));
}

TEST_F(CommitDev, WhatWasNotCommittedGoesWithTheReceiver) {
    Defer(File("one"), 0, "1");
    DropReceiver();
    EXPECT_FALSE(fs::exists(Inside() / ".tarn-staging"));
    EXPECT_FALSE(fs::exists(Inside() / "one"));
}

}  // namespace
}  // namespace agent
