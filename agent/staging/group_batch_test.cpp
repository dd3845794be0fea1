#include "agent/staging/group_batch.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <future>
#include <latch>

#include "agent/staging/report_kind.h"
#include "tests/support/fake_clock.h"
#include "tests/support/fake_user_names.h"
#include "tests/support/faulty_syscalls.h"
#include "tests/support/log_capture.h"
#include "tests/support/meta_fixture.h"
#include "tests/support/staging_fixture.h"

namespace agent {
namespace {

namespace fs = std::filesystem;
using tests::ReadFile;
using tests::TextOf;
using tests::WriteFile;
using reports_t = std::vector<brannock::transmission::entry_report_t>;

/// Texts that outlive the batch whose pieces point into them.
const std::string kText = "text";

/// Stops the copy's lane in the first `write` of all until it is let go.
class held_write_t {
  public:
    held_write_t() {
        s_held = this;
        calls_.Table().write = [](int fd, const void* buffer, std::size_t count) {
            if (!s_held->used_.exchange(true)) {
                s_held->reached_.count_down();
                s_held->go_.wait();
            }
            return posix::real_syscalls().write(fd, buffer, count);
        };
    }
    void WaitUntilReached() { reached_.wait(); }
    void LetGo() { go_.count_down(); }

  private:
    static inline held_write_t* s_held = nullptr;
    std::atomic<bool> used_ = false;
    std::latch reached_{1};
    std::latch go_{1};
    tests::faulty_syscalls_t calls_;
};

class GroupBatch : public tests::staging_fixture_t {
  protected:
    static item_t WithInfo(item_t item, util::EFileType type, std::uint32_t mode = 0640) {
        item.info.type = type;
        item.info.owner.id = ::geteuid();
        item.info.group.id = ::getegid();
        item.info.mode = mode;
        item.info.modificationTime = {1100000000, 7};
        return item;
    }

    static batch_entry_t FileEntry(const std::string& path, std::uint64_t number, const std::string& text = kText) {
        batch_entry_t entry{Deferred(WithInfo(File(path), util::EFileType::eRegular), number), text.size(), {}};
        if (!text.empty()) {
            entry.pieces.push_back({0, text});
        }
        return entry;
    }

    static batch_entry_t LinkEntry(const std::string& path, std::uint64_t number) {
        return {Deferred(WithInfo(Item(EItemKind::eLink, path), util::EFileType::eSymlink), number), 0, {}};
    }

    static batch_entry_t DirectoryEntry(const std::string& path, std::uint64_t number, std::uint32_t mode = 0750) {
        return {
            Deferred(WithInfo(Item(EItemKind::eDirectory, path), util::EFileType::eDirectory, mode), number), 0, {}};
    }

    /// Hands a batch over; returns at once.
    void Apply(std::vector<batch_entry_t> entries, bool overwrite = false) {
        Receiver()->ReceiveBatch({})->Apply(Batch(std::move(entries), overwrite));
    }

    static received_batch_t Batch(std::vector<batch_entry_t> entries, bool overwrite = false) {
        return {std::move(entries), overwrite ? EReplace::eYes : EReplace::eNo, nullptr};
    }

    void ExpectNothing(const std::vector<std::string>& names) const {
        for (const std::string& name : names) {
            EXPECT_FALSE(fs::exists(fs::symlink_status(Inside() / name))) << name;
        }
    }

    std::string Shown(const std::string& name) const { return (Inside() / name).string(); }

    struct stat Look(const std::string& name) const {
        struct stat found {};
        EXPECT_EQ(::lstat(Shown(name).c_str(), &found), 0) << name;
        return found;
    }
};

TEST_F(GroupBatch, EntriesBecomeWhatSingleItemsDo) {
    const std::string empty;
    Apply({FileEntry("d/file", 0), FileEntry("d/empty", 1, empty), LinkEntry("d/link", 2), DirectoryEntry("d", 3)});
    EXPECT_FALSE(fs::exists(Inside() / "d"));
    EXPECT_EQ(Commit(4), reports_t());
    EXPECT_EQ(ReadFile(Shown("d/file")), kText);
    EXPECT_EQ(Look("d/file").st_mode, S_IFREG | 0640U);
    EXPECT_EQ(Look("d/file").st_mtim.tv_sec, 1100000000);
    EXPECT_EQ(Look("d/file").st_mtim.tv_nsec, 7);
    EXPECT_EQ(Look("d/empty").st_size, 0);
    EXPECT_EQ(fs::read_symlink(Inside() / "d/link"), "target");
    EXPECT_EQ(Look("d/link").st_mtim.tv_sec, 1100000000);
    EXPECT_EQ(Look("d").st_mode, S_IFDIR | 0750U);
    EXPECT_EQ(Look("d").st_mtim.tv_sec, 1100000000) << "after its contents";
    EXPECT_EQ(Staged().size(), 0U);
}

TEST_F(GroupBatch, WhatNoPieceHasIsAHole) {
    const std::string text = "0123456789";
    batch_entry_t entry = FileEntry("new", 0, "");
    entry.size = 3 << 20;
    entry.pieces = {{0, text}, {10, text}, {1 << 20, text}};
    batch_entry_t hole = FileEntry("hole", 1, "");
    hole.size = 1 << 20;
    Apply({entry, hole});
    EXPECT_EQ(Commit(2), reports_t());
    std::string wanted = text + text;
    wanted.resize(1 << 20);
    wanted += text;
    wanted.resize(3 << 20);
    EXPECT_EQ(ReadFile(Shown("new")), wanted);
    EXPECT_LT(Look("new").st_blocks * 512, 1 << 20);
    EXPECT_EQ(ReadFile(Shown("hole")), std::string(1 << 20, '\0'));
    EXPECT_EQ(Look("hole").st_blocks, 0);
}

TEST_F(GroupBatch, NothingIsVisibleAndNothingElseStagedBeforeTheCommit) {
    std::promise<void> done;
    received_batch_t batch = Batch({FileEntry("new", 0), LinkEntry("link", 1), DirectoryEntry("dir", 2)});
    batch.content = std::shared_ptr<const void>(nullptr, [&](const void*) { done.set_value(); });
    Receiver()->ReceiveBatch({})->Apply(std::move(batch));
    done.get_future().wait();
    EXPECT_EQ(Staged().size(), 2U);
    ExpectNothing({"new", "link", "dir"});
    DropReceiver();
    ExpectNothing({"new", "link", "dir", ".tarn-staging"});
}

TEST_F(GroupBatch, SingleItemsAndBatchesShareAGroup) {
    Receive(Deferred(File("first"), 0), "1");
    Apply({FileEntry("second", 1)});
    Receive(Deferred(File("third"), 2), "3");
    Apply({FileEntry("fourth", 3)});
    EXPECT_EQ(Commit(4), reports_t());
    for (const char* name : {"first", "second", "third", "fourth"}) {
        EXPECT_TRUE(fs::exists(Inside() / name)) << name;
    }
}

TEST_F(GroupBatch, EntryThatIsMissingFailsTheCommit) {
    Apply({FileEntry("first", 0), FileEntry("third", 2)});
    EXPECT_NE(TextOf([&] { Commit(3); }).find("has [2] of [3] entries to commit."), std::string::npos);
    EXPECT_FALSE(fs::exists(Inside() / "first"));
    EXPECT_EQ(Staged().size(), 0U);
}

TEST_F(GroupBatch, EntryThatFailsIsReportedByTheCommitAndTheOthersGoOn) {
    WriteFile(Shown("there"), "old");
    Apply({FileEntry("first", 0), FileEntry("../x", 1), FileEntry(".tarn-staging/x", 2), FileEntry("there", 3),
           FileEntry("top/x", 4), FileEntry("last", 5)});
    const reports_t reports = Commit(6);
    ASSERT_EQ(reports.size(), 4U);
    const std::vector<std::string> paths = {"../x", ".tarn-staging/x", "there", "top/x"};
    const std::vector<std::string> texts = {
        "Path [../x] is refused: ", "Path [.tarn-staging/x] is refused: ", "[" + Shown("there") + "] exists already.",
        "Failed to open the directory of [" + Shown("top/x") + "]"};
    for (std::size_t at = 0; at < reports.size(); ++at) {
        EXPECT_EQ(reports[at].kind, kEntryFailed);
        EXPECT_EQ(reports[at].entry, at + 1);
        EXPECT_EQ(reports[at].path, Shown(paths[at]));
        EXPECT_EQ(reports[at].text.rfind(texts[at], 0), 0U) << reports[at].text;
    }
    EXPECT_EQ(ReadFile(Shown("there")), "old");
    EXPECT_EQ(ReadFile(Shown("first")), kText);
    EXPECT_EQ(ReadFile(Shown("last")), kText);
    EXPECT_EQ(Staged().size(), 0U);
}

TEST_F(GroupBatch, WhatMayBeReplacedIsReplacedButNoDirectory) {
    WriteFile(Shown("there"), "old");
    fs::create_directory(Inside() / "dir");
    fs::create_symlink("nowhere", Inside() / "link");
    Apply({FileEntry("there", 0), FileEntry("link", 1), FileEntry("dir", 2), DirectoryEntry("top", 3)}, true);
    const reports_t reports = Commit(4);
    ASSERT_EQ(reports.size(), 1U);
    EXPECT_EQ(reports[0].entry, 2U);
    EXPECT_EQ(reports[0].text.rfind("Failed to rename to [" + Shown("dir") + "]", 0), 0U) << reports[0].text;
    EXPECT_EQ(ReadFile(Shown("there")), kText);
    EXPECT_EQ(fs::symlink_status(Inside() / "link").type(), fs::file_type::regular);
    EXPECT_TRUE(fs::is_directory(Inside() / "top"));
}

TEST_F(GroupBatch, FailureOfTheStorageIsTheEntrysOwnAndLeavesNothing) {
    tests::faulty_syscalls_t calls;
    calls.Fail<&posix::syscalls_t::write>(ENOSPC, 2);
    Apply({FileEntry("first", 0), FileEntry("second", 1), FileEntry("third", 2)});
    const reports_t reports = Commit(3);
    ASSERT_EQ(reports.size(), 1U);
    EXPECT_EQ(reports[0].entry, 1U);
    EXPECT_NE(reports[0].text.find("No space left on device"), std::string::npos) << reports[0].text;
    EXPECT_FALSE(fs::exists(Inside() / "second"));
    EXPECT_EQ(ReadFile(Shown("third")), kText);
    EXPECT_EQ(Staged().size(), 0U);
}

TEST_F(GroupBatch, LongReasonIsCutToWhatAReportMayHave) {
    Apply({FileEntry(std::string(4000, 'n'), 0)});
    const reports_t reports = Commit(1);
    ASSERT_EQ(reports.size(), 1U);
    EXPECT_LE(reports[0].text.size(), brannock::transmission::kMaxReportText);
    EXPECT_FALSE(reports[0].text.empty());
}

TEST_F(GroupBatch, WarningsOfEntriesComeWithTheCommitAndTheirNumbers) {
    const tests::fake_user_names_t nobody;
    batch_entry_t file = FileEntry("file", 1);
    file.item.info.owner.name = "stranger";
    batch_entry_t link = LinkEntry("link", 2);
    link.item.info.group.name = "strangers";
    Apply({FileEntry("first", 0), file, link});
    const reports_t reports = Commit(3);
    ASSERT_EQ(reports.size(), 2U);
    EXPECT_EQ(reports[0].kind, static_cast<std::uint32_t>(util::EMetaProblem::eNoOwner));
    EXPECT_EQ(reports[0].entry, 1U);
    EXPECT_EQ(reports[0].path, Shown("file"));
    EXPECT_NE(reports[0].text.find("stranger"), std::string::npos);
    EXPECT_EQ(reports[1].entry, 2U);
    EXPECT_EQ(reports[1].path, Shown("link"));
}

TEST_F(GroupBatch, ListsThatTheStagingFolderPassesOnAreRemoved) {
    Apply({FileEntry("plain", 0)});
    EXPECT_EQ(Commit(1), reports_t());
    for (const auto& entry : fs::directory_iterator(Inside() / ".tarn-staging")) {
        const std::string list = tests::meta_fixture_t::AccessList();
        if (entry.is_directory() &&
            ::setxattr(entry.path().c_str(), "system.posix_acl_default", list.data(), list.size(), 0) != 0) {
            GTEST_SKIP() << "the file system has no access-control lists";
        }
    }
    Apply({FileEntry("listed", 0)});
    EXPECT_EQ(Commit(1), reports_t());
    EXPECT_EQ(tests::meta_fixture_t::GetAttribute(Shown("listed"), "system.posix_acl_access"), "(none)");
    EXPECT_EQ(Look("listed").st_mode, S_IFREG | 0640U);
}

TEST_F(GroupBatch, OwnersGoByTheirNumbersWhereTheReceiverSaysSo) {
    const tests::fake_user_names_t nobody;
    DropReceiver();
    staging_receiver_t receiver(std::make_shared<staging_t>(RootPtr()), util::EOwnerSource::eNumber);
    batch_entry_t file = FileEntry("file", 0);
    file.item.info.owner.name = "stranger";
    receiver.ReceiveBatch({})->Apply(Batch({file}));
    item_t commit;
    commit.kind = EItemKind::eCommit;
    commit.entry = 1;
    const dev_t dev = receiver.Receive(commit, 0, EReplace::eNo);
    dev->Finish(nullptr);
    EXPECT_EQ(dynamic_cast<brannock::transmission::IEntryReporter&>(*dev).TakeEntryReports(), reports_t());
    EXPECT_TRUE(fs::exists(Inside() / "file"));
}

TEST_F(GroupBatch, WarningsAndFaultsThatNobodyTakesAreLogged) {
    const tests::fake_user_names_t nobody;
    const tests::log_capture_t log;
    batch_entry_t file = FileEntry("file", 0);
    file.item.info.owner.name = "stranger";
    Apply({file, FileEntry("../x", 1)});
    item_t commit;
    commit.kind = EItemKind::eCommit;
    commit.entry = 2;
    Make(commit)->Finish(nullptr);
    const std::string lines = log.Dump();
    EXPECT_NE(lines.find("An entry of a committed copy failed: [" + Shown("../x") + "]"), std::string::npos) << lines;
    EXPECT_NE(lines.find("stranger"), std::string::npos) << lines;
}

TEST_F(GroupBatch, BatchThatComesAgainReplacesItsEntries) {
    const std::string again = "again";
    Apply({FileEntry("lost", 0), FileEntry("../x", 1), FileEntry("third", 2)});
    Apply({FileEntry("first", 0, again), FileEntry("second", 1, again)});
    EXPECT_EQ(Commit(3), reports_t());
    EXPECT_FALSE(fs::exists(Inside() / "lost"));
    EXPECT_EQ(ReadFile(Shown("first")), again);
    EXPECT_EQ(ReadFile(Shown("second")), again);
    EXPECT_EQ(ReadFile(Shown("third")), kText);
    EXPECT_EQ(Staged().size(), 0U);
}

TEST_F(GroupBatch, BatchOfAnEarlierSessionDoesNotReplaceALaterOne) {
    const auto late = Receiver()->ReceiveBatch({});
    Apply({FileEntry("second", 0)});
    late->Apply(Batch({FileEntry("first", 0)}));
    EXPECT_EQ(Commit(1), reports_t());
    EXPECT_FALSE(fs::exists(Inside() / "first"));
    EXPECT_TRUE(fs::exists(Inside() / "second"));
}

TEST_F(GroupBatch, CommitWaitsForTheBatchesThatCameForIt) {
    held_write_t held;
    Apply({FileEntry("first", 0), FileEntry("second", 1)});
    held.WaitUntilReached();
    Apply({FileEntry("third", 2)});  // waits behind the first, and nobody waits for it
    auto committed = std::async(std::launch::async, [&] { return Commit(3); });
    held.LetGo();
    EXPECT_EQ(committed.get(), reports_t());
    EXPECT_EQ(ReadFile(Shown("first")), kText);
    EXPECT_EQ(ReadFile(Shown("third")), kText);
}

TEST_F(GroupBatch, GroupWhoseBatchIsWorkedOnIsInUse) {
    tests::fake_clock_t clock;
    held_write_t held;
    std::promise<void> done;
    received_batch_t batch = Batch({FileEntry("first", 0)});
    batch.content = std::shared_ptr<const void>(nullptr, [&](const void*) { done.set_value(); });
    Receiver()->ReceiveBatch({})->Apply(std::move(batch));
    held.WaitUntilReached();
    clock.Advance(std::chrono::hours(1));
    Receive(File("other"), "x");
    EXPECT_EQ(Staged().size(), 1U) << "the batch's file is still there";
    held.LetGo();
    done.get_future().wait();
    const tests::log_capture_t log;
    clock.Advance(std::chrono::hours(1));
    Receive(File("another"), "x");
    EXPECT_EQ(Staged().size(), 0U) << "nobody went on with it";
    EXPECT_NE(log.Dump().find("was not gone on with"), std::string::npos);
}

TEST_F(GroupBatch, EndOfTheReceiverWaitsForTheBatchAndLeavesNothing) {
    held_write_t held;
    Apply({FileEntry("first", 0), FileEntry("second", 1)});
    held.WaitUntilReached();
    auto dropped = std::async(std::launch::async, [&] { DropReceiver(); });
    held.LetGo();
    dropped.get();
    ExpectNothing({"first", "second", ".tarn-staging"});
}

TEST_F(GroupBatch, DeviceThatOutlivesTheReceiverStillWorks) {
    const auto late = Receiver()->ReceiveBatch({});
    DropReceiver();
    late->Apply(Batch({FileEntry("first", 0)}));
}

TEST_F(GroupBatch, PathsAndFaultsOfAGroupAreBounded) {
    std::vector<batch_entry_t> entries;
    for (std::uint64_t number = 0; number < 3; ++number) {
        entries.push_back(DirectoryEntry("d" + std::to_string(number), number));
        entries.back().item.info.attributes.push_back({"user.big", std::string(3 << 20, 'x')});
    }
    Apply(std::move(entries));
    const reports_t reports = Commit(3);  // the attribute is too long for any directory
    ASSERT_EQ(reports.size(), 3U);
    for (const auto& report : reports) {
        const bool isBounded =
            report.text.find("has more than [8388608] bytes of paths and attributes.") != std::string::npos;
        EXPECT_EQ(isBounded, report.entry == 2) << report.entry << ": " << report.text;
    }
}

}  // namespace
}  // namespace agent
