#include "agent/staging/staging.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <set>
#include <string>
#include <vector>

#include "agent/staging/staging_journal.h"
#include "agent/staging/staging_names.h"
#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/posix/errno_exc.h"
#include "mirrowen/util/random.h"
#include "tests/support/fake_clock.h"
#include "tests/support/log_capture.h"
#include "tests/support/root_fixture.h"

namespace agent {
namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;

constexpr staging_options_t kShared{.use = EStagingUse::eShared};
const char* const kRun = "0123456789abcdef0123456789abcdef";

class StagingTest : public tests::root_fixture_t {
  protected:
    StagingTest() : root_fixture_t(EResolver::eKernel) {}

    fs::path Folder() const { return Inside() / ".tarn-staging"; }
    std::unique_ptr<staging_t> Start() const { return std::make_unique<staging_t>(RootPtr()); }
    std::vector<journal_note_t> Journal() const { return ReadJournal(*confined_root_t::Open(Folder())); }
    /// The folder as a process leaves it that dies.
    void LeaveRun(const std::string& name) const {
        fs::create_directories(Folder() / name);
        AppendToJournal(*confined_root_t::Open(Folder()), {EJournalWord::eRun, name});
    }
    std::string StartText() const {
        try {
            Start();
        } catch (const std::exception& error) {
            return error.what();
        }
        return {};
    }
};

TEST_F(StagingTest, FolderIsForItsOwnerOnlyAndGoesAtTheEnd) {
    {
        const auto staging = Start();
        EXPECT_EQ(fs::status(Folder()).permissions(), fs::perms::owner_all);
        EXPECT_TRUE(fs::is_regular_file(Folder() / "lock"));
    }
    EXPECT_FALSE(fs::exists(Folder()));
}

TEST_F(StagingTest, NamesLieInAFolderThatTheJournalNames) {
    const auto staging = Start();
    const auto notes = Journal();
    ASSERT_EQ(notes.size(), 1U);
    EXPECT_EQ(notes[0].word, EJournalWord::eRun);
    EXPECT_TRUE(fs::is_directory(Folder() / notes[0].name));
    staging->GetFolder().CreateFile("staged");
    EXPECT_TRUE(fs::exists(Folder() / notes[0].name / "staged"));
}

TEST_F(StagingTest, FolderOfTheRunIsMadeWhenTheJournalIsDurableAndNotBefore) {
    static std::string s_steps;
    s_steps.clear();
    posix::syscalls_t table = posix::sys();
    table.write = [](int fd, const void* bytes, std::size_t count) {
        s_steps += "write ";
        return posix::real_syscalls().write(fd, bytes, count);
    };
    table.fsync = [](int fd) {
        struct stat found {};
        posix::real_syscalls().fstat(fd, &found);
        s_steps += S_ISDIR(found.st_mode) ? "sync-folder " : "sync-journal ";
        return posix::real_syscalls().fsync(fd);
    };
    table.mkdirat = [](int dir, const char* path, mode_t mode) {
        s_steps += "mkdir ";
        return posix::real_syscalls().mkdirat(dir, path, mode);
    };
    const posix::scoped_syscalls_t scope(table);
    const auto staging = Start();
    EXPECT_EQ(s_steps, "mkdir write sync-journal sync-folder mkdir ");
}

TEST_F(StagingTest, JournalThatDoesNotReachTheStorageIsNoStart) {
    tests::faulty_syscalls_t calls;
    calls.Fail<&posix::syscalls_t::fsync>(EIO);
    EXPECT_EQ(StartText(), "Failed to write the journal of [" + Folder().string() + "]: Input/output error");
}

TEST_F(StagingTest, WhatIsStillStagedAtTheEndIsRemoved) {
    {
        const auto staging = Start();
        staging->GetFolder().CreateFile("something");
    }
    EXPECT_FALSE(fs::exists(Folder()));
}

TEST_F(StagingTest, WhatAnEarlierRunLeftIsRemovedAtTheStart) {
    LeaveRun(kRun);
    tests::WriteFile(Folder() / kRun / "half", "half a file");
    fs::create_symlink(Outside() / "b", Folder() / kRun / "link");
    const auto before = tests::SnapshotOf(Outside());
    const auto staging = Start();
    EXPECT_FALSE(fs::exists(Folder() / kRun));
    EXPECT_EQ(Journal().size(), 1U) << "the run that is under way";
    EXPECT_EQ(tests::SnapshotOf(Outside()), before);
}

TEST_F(StagingTest, LinkInThePlaceOfALeftoverIsRemovedAndNotFollowed) {
    LeaveRun(kRun);
    fs::remove(Folder() / kRun);
    fs::create_symlink(Outside() / "b", Folder() / kRun);
    const auto before = tests::SnapshotOf(Outside());
    const auto staging = Start();
    EXPECT_FALSE(fs::is_symlink(Folder() / kRun));
    EXPECT_EQ(tests::SnapshotOf(Outside()), before);
}

TEST_F(StagingTest, LeftoverThatIsGoneIsForgotten) {
    LeaveRun(kRun);
    fs::remove(Folder() / kRun);
    Start();
    EXPECT_FALSE(fs::exists(Folder()));
}

TEST_F(StagingTest, LeftoverThatCannotBeRemovedIsToldAndStaysInTheJournal) {
    LeaveRun(kRun);
    fs::create_directories(Folder() / kRun / "full/of");
    {
        tests::log_capture_t log;
        const auto staging = Start();
        EXPECT_TRUE(fs::exists(Folder() / kRun / "full/of"));
        EXPECT_TRUE(log.Has(logging::ELevel::eWarn, "Failed to remove what an earlier run left behind.")) << log.Dump();
        EXPECT_EQ(log.Dump().find("none of the staging folder's"), std::string::npos) << log.Dump();
    }
    EXPECT_EQ(Journal(), (std::vector<journal_note_t>{{EJournalWord::eRun, kRun}}));
    fs::remove_all(Folder() / kRun / "full");
    Start();
    EXPECT_FALSE(fs::exists(Folder()));
}

TEST_F(StagingTest, WhatTheJournalDoesNotNameIsToldAndLeftAlone) {
    fs::create_directories(Folder() / "mine/deep");
    tests::WriteFile(Folder() / kRun, "looks like one of ours");
    fs::create_symlink(Outside() / "b", Folder() / "link");
    const auto contents = [this] {
        auto names = tests::SnapshotOf(Folder());
        names.erase("");  // the folder itself is closed to others
        return names;
    };
    const auto before = contents();
    tests::log_capture_t log;
    Start();
    for (const std::string& name : {"mine"s, "link"s, std::string(kRun)}) {
        EXPECT_TRUE(log.Has(logging::ELevel::eWarn,
                            "[" + (Folder() / name).string() + "] is none of the staging folder's and is left alone."))
            << log.Dump();
    }
    fs::remove(Folder() / "lock");
    EXPECT_EQ(contents(), before);
}

TEST_F(StagingTest, TornLineNamesNothing) {
    LeaveRun(kRun);
    {
        const std::string whole = tests::ReadFile(Folder() / "journal");
        tests::WriteFile(Folder() / "journal", whole.substr(0, whole.size() - 5));
    }
    const tests::log_capture_t log;
    const auto staging = Start();
    EXPECT_TRUE(fs::exists(Folder() / kRun));
    EXPECT_EQ(Journal().size(), 1U);
}

TEST_F(StagingTest, ProcessThatDiesAtAnyStepLeavesNothingThatTheNextStartDoesNotClear) {
    for (int step = 0;; ++step) {
        SCOPED_TRACE("before step " + std::to_string(step));
        const pid_t child = ::fork();
        if (child == 0) {
            const tests::step_hook_t hook(step, [] { ::_exit(7); });
            auto* const staging = new staging_t(RootPtr());
            staging->GetFolder().CreateFile("half");
            ::_exit(0);
        }
        int status = -1;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        tests::log_capture_t log;
        Start();
        EXPECT_FALSE(fs::exists(Folder()));
        EXPECT_TRUE(log.Texts(logging::ELevel::eWarn).empty()) << log.Dump();
        if (WEXITSTATUS(status) == 0) {
            EXPECT_GT(step, 5);
            break;
        }
    }
}

TEST_F(StagingTest, SecondHolderIsRefusedWhoeverItIs) {
    const std::string expected = "Staging folder [" + Folder().string() + "] is in use by another process.";
    const auto staging = Start();
    tests::WriteFile(Folder() / "staged", "in work");
    EXPECT_EQ(StartText(), expected);
    const pid_t child = ::fork();
    if (child == 0) {
        ::_exit(StartText() == expected ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(tests::ReadFile(Folder() / "staged"), "in work");
}

TEST_F(StagingTest, CopiesShareTheFolderAndTheLastRemovesIt) {
    const auto share = [this] { return std::make_unique<staging_t>(RootPtr(), kShared); };
    auto first = share();
    first->GetFolder().CreateFile("staged");
    auto second = share();
    second->GetFolder().CreateFile("staged");
    EXPECT_EQ(Journal().size(), 2U);
    EXPECT_EQ(StartText(), "Staging folder [" + Folder().string() + "] is in use by another process.");
    first->GetFolder().RemoveFile("staged");
    first.reset();
    EXPECT_TRUE(second->GetFolder().TryStat("staged"));
    second.reset();
    EXPECT_FALSE(fs::exists(Folder()));
}

TEST_F(StagingTest, CopyDoesNotShareTheFolderOfAServer) {
    const tests::fake_clock_t clock;  // the copy waits a little for whoever is just clearing the folder
    const auto server = Start();
    try {
        const staging_t copy(RootPtr(), kShared);
        FAIL();
    } catch (const exc::CException& error) {
        EXPECT_EQ(error.Message(), "Staging folder [" + Folder().string() + "] is in use by another process.");
    }
    EXPECT_TRUE(fs::exists(Folder()));
}

TEST_F(StagingTest, FirstOfTheCopiesClearsWhatAnEarlierRunLeft) {
    LeaveRun(kRun);
    const staging_t first(RootPtr(), kShared);
    EXPECT_FALSE(fs::exists(Folder() / kRun));
}

TEST_F(StagingTest, LastOfTheCopiesClearsWhatOneThatDiedLeft) {
    auto last = std::make_unique<staging_t>(RootPtr(), kShared);
    LeaveRun(kRun);
    tests::WriteFile(Folder() / kRun / "half", "half a file");
    last.reset();
    EXPECT_FALSE(fs::exists(Folder()));
}

TEST_F(StagingTest, LockOfAProcessThatDiedIsFree) {
    const pid_t child = ::fork();
    if (child == 0) {
        auto* const staging = new staging_t(RootPtr());
        staging->GetFolder().CreateFile("half");
        ::_exit(staging->GetFolder().TryStat("half") ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_EQ(status, 0);
    const std::string left = Journal().at(0).name;
    ASSERT_TRUE(fs::exists(Folder() / left / "half"));
    const auto staging = Start();
    EXPECT_FALSE(fs::exists(Folder() / left));
}

TEST_F(StagingTest, LinkOrFileInItsPlaceIsRefused) {
    fs::create_symlink(Outside(), Folder());
    const auto before = tests::SnapshotOf(Outside());
    EXPECT_EQ(StartText(), "Failed to open staging folder [" + Folder().string() + "]: Not a directory");
    fs::remove(Folder());
    tests::WriteFile(Folder(), "a file");
    EXPECT_EQ(StartText(), "Failed to open staging folder [" + Folder().string() + "]: Not a directory");
    EXPECT_EQ(tests::SnapshotOf(Outside()), before);
}

TEST_F(StagingTest, LinkInTheLocksPlaceIsRefused) {
    fs::create_directory(Folder());
    fs::create_symlink(Outside() / "made", Folder() / "lock");
    EXPECT_NE(StartText(), "");
    EXPECT_FALSE(fs::exists(Outside() / "made"));
}

TEST_F(StagingTest, FolderOfAnotherUserIsRefused) {
    fs::create_directory(Folder());
    ASSERT_EQ(::chown(Folder().c_str(), 65534, 65534), 0);
    EXPECT_EQ(StartText(), "Staging folder [" + Folder().string() + "] belongs to another user.");
}

TEST_F(StagingTest, FolderThatOthersMayEnterIsClosed) {
    fs::create_directory(Folder());
    fs::permissions(Folder(), fs::perms::all);
    const auto staging = Start();
    EXPECT_EQ(fs::status(Folder()).permissions(), fs::perms::owner_all);
}

TEST_F(StagingTest, FolderThatVanishesBetweenAnyTwoStepsIsMadeAgain) {
    for (int step = 0;; ++step) {
        SCOPED_TRACE("before step " + std::to_string(step));
        const tests::step_hook_t hook(step, [&] { fs::remove_all(Folder()); });
        const auto staging = Start();
        if (!hook.HasRun()) {
            EXPECT_GT(step, 3);
            break;
        }
        if (fs::exists(Folder())) {
            EXPECT_TRUE(fs::is_regular_file(Folder() / "lock"));
        }
    }
}

TEST_F(StagingTest, FolderIsNotFoundUnderAnyNameOfAPeer) {
    const auto staging = Start();
    EXPECT_THROW(staging->GetRoot().OpenFile(".tarn-staging/lock"), exc::CRuntimeExc);
    EXPECT_EQ(staging->GetRoot().ListTop(EOrder::eSorted), (std::vector<std::string>{"a", "top"}));
}

TEST_F(StagingTest, DescriptorsAreGivenBack) {
    const std::size_t before = tests::CountDescriptors();
    Start();
    EXPECT_EQ(tests::CountDescriptors(), before);
    fs::create_symlink(Outside(), Folder());
    EXPECT_NE(StartText(), "");
    EXPECT_EQ(tests::CountDescriptors(), before);
}

TEST_F(StagingTest, NamesComeFromTheSourceOfRandomness) {
    class counting_t final : public util::IRandom {
      public:
        void Fill(std::span<std::byte> out) override {
            for (std::byte& byte : out) {
                byte = static_cast<std::byte>(next_++);
            }
        }

      private:
        unsigned next_ = 0xf8;
    };
    counting_t source;
    {
        const util::scoped_random_t scope(source);
        EXPECT_EQ(NewStagingName(), "f8f9fafbfcfdfeff0001020304050607");
    }
    std::set<std::string> names;
    for (int count = 0; count < 100; ++count) {
        names.insert(NewStagingName());
    }
    EXPECT_EQ(names.size(), 100U);
}

}  // namespace
}  // namespace agent
