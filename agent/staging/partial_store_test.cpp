#include "agent/staging/partial_store.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <span>

#include "mirrowen/exc/runtime_exc.h"
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
using tests::ZeroesOf;

constexpr util::SFileTime kModified{1100000000, 7};

partial_t PartialOf(const std::string& bytes) {
    return {bytes.size(), digest::ComputeBlockDigest(std::as_bytes(std::span(bytes)))};
}

class Partial : public tests::staging_fixture_t {
  protected:
    Partial() { Restart(); }

    static item_t Large(const std::string& path, std::uint64_t startOffset = 0) {
        item_t item = File(path);
        item.info.type = util::EFileType::eRegular;
        item.info.size = 7;
        item.info.mode = 0640;
        item.info.owner.id = ::geteuid();
        item.info.group.id = ::getegid();
        item.info.modificationTime = kModified;
        item.resumable = true;
        item.startOffset = startOffset;
        return item;
    }

    /// As a new process.
    void Restart(staging_options_t options = {}) {
        DropReceiver();
        receiver_.reset();
        staging_.reset();
        staging_ = std::make_shared<staging_t>(RootPtr(), options);
        receiver_ = std::make_shared<staging_receiver_t>(staging_);
    }
    void Stop() {
        receiver_.reset();
        staging_.reset();
    }

    dev_t MakeLarge(const item_t& item, std::uint64_t size = 0) {
        return receiver_->Receive(item, size, EReplace::eNo);
    }

    void BreakOff(const item_t& item, const std::string& text) {
        const dev_t dev = MakeLarge(item);
        dev->Write(AreaOf(text, item.startOffset));
    }

    std::optional<partial_t> Find(const std::string& path = "new") const {
        return staging_->FindPartial(path, 7, kModified);
    }

    fs::path Folder() const { return Inside() / ".tarn-staging"; }
    fs::path Place(const std::string& path = "new") const {
        return Folder() / "partial" / partial_store_t::KeyOf(path, 7, kModified);
    }
    static void SetAge(const fs::path& path, std::chrono::system_clock::time_point modified) {
        const timespec time{std::chrono::system_clock::to_time_t(modified), 0};
        const timespec times[2] = {time, time};
        ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
    }

    std::shared_ptr<staging_t> staging_;
    std::shared_ptr<staging_receiver_t> receiver_;
};

TEST_F(Partial, WhatCameIsKeptAndFoundByItsDigest) {
    BreakOff(Large("new"), "con");
    EXPECT_EQ(Find(), PartialOf("con"));
    EXPECT_FALSE(fs::exists(Inside() / "new"));
    EXPECT_EQ(fs::status(Place()).permissions(), fs::perms::owner_read | fs::perms::owner_write);
}

TEST_F(Partial, ResumedFileIsTheWholeFileAndNotVisibleMeanwhile) {
    BreakOff(Large("new"), "con");
    dev_t dev = MakeLarge(Large("new", 3), 7);
    dev->Write(AreaOf("tent", 3));
    EXPECT_FALSE(fs::exists(Inside() / "new"));
    dev->Finish(nullptr);
    dev.reset();
    EXPECT_EQ(ReadFile(Inside() / "new"), "content");
    EXPECT_EQ(fs::status(Inside() / "new").permissions(), static_cast<fs::perms>(0640));
    EXPECT_FALSE(fs::exists(Place()));
    Stop();
    EXPECT_FALSE(fs::exists(Folder()));
}

TEST_F(Partial, TransferMayBreakOffManyTimes) {
    const std::string content = "content";
    for (std::size_t at = 0; at < content.size(); ++at) {
        BreakOff(Large("new", at), content.substr(at, 1));
        EXPECT_EQ(Find(), PartialOf(content.substr(0, at + 1)));
    }
    MakeLarge(Large("new", 7))->Finish(nullptr);
    EXPECT_EQ(ReadFile(Inside() / "new"), content);
}

TEST_F(Partial, MoreThanTheStartIsCutOff) {
    BreakOff(Large("new"), "conSENSE");
    const dev_t dev = MakeLarge(Large("new", 3), 7);
    dev->Write(AreaOf("tent", 3));
    dev->Finish(nullptr);
    EXPECT_EQ(ReadFile(Inside() / "new"), "content");
}

TEST_F(Partial, StartBehindWhatIsKeptIsRefusedWithBothNumbers) {
    const std::string shown = (Inside() / "new").string();
    EXPECT_EQ(TextOf([&] { MakeLarge(Large("new", 4)); }),
              "Item [" + shown + "] starts at [4], but [0] bytes are kept.");
    BreakOff(Large("new"), "con");
    EXPECT_EQ(TextOf([&] { MakeLarge(Large("new", 4)); }),
              "Item [" + shown + "] starts at [4], but [3] bytes are kept.");
    EXPECT_EQ(Find(), PartialOf("con"));
    EXPECT_EQ(TextOf([&] {
                  const dev_t busy = MakeLarge(Large("new", 3));
                  MakeLarge(Large("new", 3));
              }),
              "Item [" + shown + "] starts at [3], but [0] bytes are kept.");
}

TEST_F(Partial, NewTransferStartsAfresh) {
    BreakOff(Large("new"), "OLD");
    BreakOff(Large("new"), "n");
    EXPECT_EQ(Find(), PartialOf("n"));
}

TEST_F(Partial, AnotherPathSizeOrTimeFindsNothing) {
    BreakOff(Large("new"), "con");
    EXPECT_EQ(staging_->FindPartial("news", 7, kModified), std::nullopt);
    EXPECT_EQ(staging_->FindPartial("new", 8, kModified), std::nullopt);
    EXPECT_EQ(staging_->FindPartial("new", 7, {kModified.seconds, 8}), std::nullopt);
    EXPECT_EQ(staging_->FindPartial("new", 7, {kModified.seconds + 1, 7}), std::nullopt);
}

TEST_F(Partial, FileInWorkIsNotFoundAndASecondTransferGoesItsOwnWay) {
    const dev_t first = MakeLarge(Large("new"));
    first->Write(AreaOf("con", 0));
    {
        const tests::fake_clock_t clock;
        const auto begin = clock.SteadyNow();
        EXPECT_EQ(Find(), std::nullopt);
        EXPECT_EQ(clock.SteadyNow() - begin, std::chrono::seconds(5));
    }
    const dev_t second = MakeLarge(Large("new"), 5);
    second->Write(AreaOf("other", 0));
    EXPECT_EQ(Staged().size(), 2U);
    second->Finish(nullptr);
    EXPECT_EQ(ReadFile(Inside() / "new"), "other");
    EXPECT_EQ(ReadFile(Place()), "con");
}

/// Lets a transfer end while somebody waits for it.
class ending_clock_t final : public util::IClock {
  public:
    explicit ending_clock_t(std::shared_ptr<io::area::area_write_dev_t> transfer) : transfer_(std::move(transfer)) {}
    steady_point_t SteadyNow() const override { return {}; }
    std::chrono::system_clock::time_point SystemNow() const override { return {}; }
    void SleepFor(std::chrono::milliseconds, std::stop_token) override { transfer_.reset(); }

  private:
    std::shared_ptr<io::area::area_write_dev_t> transfer_;
    util::scoped_clock_t inForce_{*this};
};

TEST_F(Partial, TransferThatIsAboutToEndIsWaitedFor) {
    dev_t dev = MakeLarge(Large("new"));
    dev->Write(AreaOf("con", 0));
    const ending_clock_t clock(std::move(dev));
    EXPECT_EQ(Find(), PartialOf("con"));
}

TEST_F(Partial, FailedWriteRemovesIt) {
    const dev_t dev = MakeLarge(Large("new"));
    dev->Write(AreaOf("con", 0));
    tests::faulty_syscalls_t calls;
    calls.Fail<&posix::syscalls_t::write>(ENOSPC);
    EXPECT_NE(TextOf([&] { dev->Write(AreaOf("tent", 3)); }), "");
    EXPECT_FALSE(fs::exists(Place()));
    EXPECT_EQ(Find(), std::nullopt);
}

TEST_F(Partial, FileOfAnotherLengthThanDeclaredIsRemoved) {
    const dev_t dev = MakeLarge(Large("new"), 7);
    dev->Write(AreaOf("con", 0));
    EXPECT_NE(TextOf([&] { dev->Finish(nullptr); }), "");
    EXPECT_FALSE(fs::exists(Place()));
}

TEST_F(Partial, DeclaredLengthIsThatOfTheWholeFile) {
    BreakOff(Large("new"), "con");
    const dev_t dev = MakeLarge(Large("new", 3), 4);
    dev->Write(AreaOf("tent", 3));
    EXPECT_EQ(TextOf([&] { dev->Finish(nullptr); }),
              "Item [" + (Inside() / "new").string() + "] ended after [7] bytes, but [4] were declared.");
}

TEST_F(Partial, FailureAfterTheLastByteLeavesNothing) {
    const dev_t dev = MakeLarge(Large("new"), 7);
    dev->Write(AreaOf("content", 0));
    tests::faulty_syscalls_t calls;
    calls.Fail<&posix::syscalls_t::fchmod>(EIO);
    EXPECT_NE(TextOf([&] { dev->Finish(nullptr); }), "");
    EXPECT_FALSE(fs::exists(Place()));
    EXPECT_FALSE(fs::exists(Inside() / "new"));
}

TEST_F(Partial, TransferThatBringsNothingLeavesNothing) {
    MakeLarge(Large("new"));
    EXPECT_FALSE(fs::exists(Place()));
}

TEST_F(Partial, LengthIsWhatCameAndHolesStay) {
    {
        const dev_t dev = MakeLarge(Large("new"));
        dev->Write(ZeroesOf(1 << 20, 0));
        dev->Write(AreaOf("x", 1 << 20));
        dev->Write(ZeroesOf(1 << 20, (1 << 20) + 1));
    }
    std::string kept(1 << 20, '\0');
    kept += 'x';
    EXPECT_EQ(Find(), PartialOf(kept));
    struct stat found {};
    ASSERT_EQ(::stat(Place().c_str(), &found), 0);
    EXPECT_LT(found.st_blocks * 512, 1 << 18);
}

TEST_F(Partial, DeferredFileWaitsForItsCommitAsAnyOther) {
    BreakOff(Large("new"), "con");
    const dev_t dev = MakeLarge(Deferred(Large("new", 3), 0), 7);
    dev->Write(AreaOf("tent", 3));
    dev->Finish(nullptr);
    EXPECT_FALSE(fs::exists(Inside() / "new"));
    EXPECT_FALSE(fs::exists(Place()));
    item_t commit;
    commit.kind = EItemKind::eCommit;
    commit.entry = 1;
    receiver_->Receive(commit, 0, EReplace::eNo)->Finish(nullptr);
    EXPECT_EQ(ReadFile(Inside() / "new"), "content");
}

TEST_F(Partial, NextProcessGoesOnWithIt) {
    BreakOff(Large("new"), "con");
    for (int times = 0; times < 2; ++times) {
        const tests::log_capture_t log;
        Restart();
        EXPECT_EQ(Find(), PartialOf("con"));
        EXPECT_TRUE(log.Texts(logging::ELevel::eWarn).empty()) << log.Dump();
    }
    const dev_t dev = MakeLarge(Large("new", 3), 7);
    dev->Write(AreaOf("tent", 3));
    dev->Finish(nullptr);
    EXPECT_EQ(ReadFile(Inside() / "new"), "content");
}

TEST_F(Partial, CopiesThatShareTheFolderFindEachOthersFiles) {
    constexpr staging_options_t shared{.use = EStagingUse::eShared};
    Restart(shared);
    const staging_t other(RootPtr(), shared);
    BreakOff(Large("new"), "con");
    EXPECT_EQ(other.FindPartial("new", 7, kModified), PartialOf("con"));
    const dev_t busy = MakeLarge(Large("new", 3));
    EXPECT_EQ(other.FindPartial("new", 7, kModified), std::nullopt);
}

TEST_F(Partial, OldOnesGoAtTheStart) {
    BreakOff(Large("new"), "con");
    BreakOff(Large("young"), "con");
    SetAge(Place("new"), std::chrono::system_clock::now() - std::chrono::hours(7 * 24 + 1));
    SetAge(Place("young"), std::chrono::system_clock::now() - std::chrono::hours(7 * 24 - 1));
    Restart();
    EXPECT_EQ(Find("new"), std::nullopt);
    EXPECT_FALSE(fs::exists(Place("new")));
    EXPECT_EQ(Find("young"), PartialOf("con"));
}

TEST_F(Partial, OldOnesGoHourlyAtMostWhenANewOneBegins) {
    tests::fake_clock_t clock;
    Restart();
    BreakOff(Large("old"), "con");
    SetAge(Place("old"), clock.SystemNow() - std::chrono::hours(7 * 24 + 1));
    BreakOff(Large("new"), "con");
    EXPECT_TRUE(fs::exists(Place("old"))) << "looked at within the hour";
    SetAge(Place("new"), clock.SystemNow());
    clock.Advance(std::chrono::hours(1));
    BreakOff(Large("newer"), "con");
    EXPECT_FALSE(fs::exists(Place("old")));
    EXPECT_TRUE(fs::exists(Place("new")));
    const auto notes = ReadJournal(*confined_root_t::Open(Folder()));
    EXPECT_EQ(notes.size(), 3U) << "the run and the two that are left";
    EXPECT_EQ(notes.front().word, EJournalWord::eRun);
}

TEST_F(Partial, OldOneInWorkStays) {
    tests::fake_clock_t clock;
    Restart();
    const dev_t busy = MakeLarge(Large("old"));
    busy->Write(AreaOf("con", 0));
    SetAge(Place("old"), clock.SystemNow() - std::chrono::hours(7 * 24 + 1));
    clock.Advance(std::chrono::hours(1));
    BreakOff(Large("new"), "con");
    EXPECT_TRUE(fs::exists(Place("old")));
}

TEST_F(Partial, NothingIsKeptWhereThatIsAskedFor) {
    BreakOff(Large("new"), "con");
    Restart({.keepPartial = std::chrono::seconds(0)});
    EXPECT_EQ(Find(), std::nullopt);
    BreakOff(Large("new"), "con");
    EXPECT_EQ(Find(), std::nullopt);
    EXPECT_EQ(Staged().size(), 0U);
    Stop();
    EXPECT_FALSE(fs::exists(Folder()));
}

TEST_F(Partial, FileThatIsNotResumableIsNotKept) {
    item_t item = Large("new");
    item.resumable = false;
    BreakOff(item, "con");
    EXPECT_EQ(Find(), std::nullopt);
    EXPECT_FALSE(fs::exists(Folder() / "partial"));
}

TEST_F(Partial, FileIsMadeWhenTheJournalIsDurableAndNotBefore) {
    static std::string s_steps;
    s_steps.clear();
    posix::syscalls_t table = posix::sys();
    table.fsync = [](int fd) {
        s_steps += "sync ";
        return posix::real_syscalls().fsync(fd);
    };
    table.openat = [](int dir, const char* path, int flags, mode_t mode) {
        s_steps += (flags & O_EXCL) != 0 ? "make " : "";
        return posix::real_syscalls().openat(dir, path, flags, mode);
    };
    const posix::scoped_syscalls_t scope(table);
    const dev_t dev = MakeLarge(Large("new"));
    EXPECT_EQ(s_steps, "sync sync make ");
}

TEST_F(Partial, ForeignFilesBesideThemAreToldAndLeftAlone) {
    BreakOff(Large("new"), "con");
    WriteFile(Folder() / "partial/mine", "x");
    tests::log_capture_t log;
    Restart({.keepPartial = std::chrono::seconds(0)});
    EXPECT_FALSE(fs::exists(Place()));
    EXPECT_EQ(ReadFile(Folder() / "partial/mine"), "x");
    EXPECT_NE(log.Dump().find("mine] is none of the staging folder's and is left alone."), std::string::npos)
        << log.Dump();
}

TEST_F(Partial, LinkUnderTheKeyIsNotFollowed) {
    BreakOff(Large("new"), "con");
    fs::remove(Place());
    fs::create_symlink(Outside() / "b/x", Place());
    EXPECT_NE(TextOf([&] { MakeLarge(Large("new")); }), "");
    EXPECT_NE(TextOf([&] { MakeLarge(Large("new", 3)); }), "");
    EXPECT_EQ(ReadFile(Outside() / "b/x"), "secret");
}

TEST_F(Partial, NoWayThroughLeaksADescriptor) {
    const std::size_t before = tests::CountDescriptors();
    BreakOff(Large("new"), "con");
    Find();
    TextOf([&] { MakeLarge(Large("new", 4)); });
    MakeLarge(Large("new", 3))->Finish(nullptr);
    EXPECT_EQ(tests::CountDescriptors(), before);
}

}  // namespace
}  // namespace agent
