#include "agent/staging/staging_journal.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "mirrowen/posix/errno_exc.h"
#include "tests/support/format_example.h"
#include "tests/support/root_fixture.h"

namespace agent {
namespace {

namespace fs = std::filesystem;
using notes_t = std::vector<journal_note_t>;

const journal_note_t kRun{EJournalWord::eRun, "00112233445566778899aabbccddeeff"};
const journal_note_t kPartial{EJournalWord::ePartial, "ffeeddccbbaa99887766554433221100"};

class StagingJournal : public tests::root_fixture_t {
  protected:
    StagingJournal() : root_fixture_t(EResolver::eKernel) {}

    fs::path File() const { return Inside() / "journal"; }
    notes_t Read() const { return ReadJournal(Root()); }
};

TEST_F(StagingJournal, ExampleOfTheDocumentationIsWhatIsWritten) {
    AppendToJournal(Root(), kRun);
    AppendToJournal(Root(), kPartial);
    EXPECT_EQ(tests::ReadFile(File()), tests::FormatExample("Staging journal"));
    EXPECT_EQ(Read(), (notes_t{kRun, kPartial}));
}

TEST_F(StagingJournal, MissingJournalSaysNothing) {
    EXPECT_EQ(Read(), notes_t());
}

TEST_F(StagingJournal, EveryTruncationReadsTheWholeLinesOnly) {
    AppendToJournal(Root(), kRun);
    const std::string one = tests::ReadFile(File());
    AppendToJournal(Root(), kPartial);
    const std::string both = tests::ReadFile(File());
    for (std::size_t length = 0; length < both.size(); ++length) {
        tests::WriteFile(File(), both.substr(0, length));
        EXPECT_EQ(Read(), length < one.size() ? notes_t() : notes_t{kRun}) << length;
    }
}

TEST_F(StagingJournal, LineThatWasTornDoesNotSpoilTheNext) {
    tests::WriteFile(File(), "12345678 run 0011");
    AppendToJournal(Root(), kRun);
    EXPECT_EQ(Read(), notes_t{kRun});
}

TEST_F(StagingJournal, DamagedByteLeavesOutItsLineOnly) {
    AppendToJournal(Root(), kRun);
    const std::size_t first = tests::ReadFile(File()).size();
    AppendToJournal(Root(), kPartial);
    const std::string good = tests::ReadFile(File());
    for (std::size_t at = 0; at + 1 < first; ++at) {
        std::string bad = good;
        bad[at] = static_cast<char>(bad[at] ^ 1);
        tests::WriteFile(File(), bad);
        EXPECT_EQ(Read(), notes_t{kPartial}) << at;
    }
}

TEST_F(StagingJournal, UnknownWordsAndNamesThatAreNoneAreLeftOut) {
    // Each with a checksum that is right.
    tests::WriteFile(File(),
                     "cf123e8e walk 00112233445566778899aabbccddeeff\n"
                     "e3069283 123456789\n");
    EXPECT_EQ(Read(), notes_t());
}

TEST_F(StagingJournal, RewritingLeavesJustTheNotes) {
    AppendToJournal(Root(), kRun);
    RewriteJournal(Root(), {kPartial});
    EXPECT_EQ(Read(), notes_t{kPartial});
    EXPECT_FALSE(fs::exists(Inside() / "journal.new"));
    RewriteJournal(Root(), {});
    EXPECT_FALSE(fs::exists(File()));
}

TEST_F(StagingJournal, FailureWhileRewritingLeavesTheOldOne) {
    AppendToJournal(Root(), kRun);
    for (const bool atTheRename : {true, false}) {
        tests::faulty_syscalls_t calls;
        if (atTheRename) {
            calls.Fail<&posix::syscalls_t::renameat2>(EIO);
        } else {
            calls.Fail<&posix::syscalls_t::fsync>(EIO);
        }
        EXPECT_THROW(RewriteJournal(Root(), {kPartial}), posix::errno_exc_t);
        EXPECT_EQ(Read(), notes_t{kRun});
    }
}

TEST_F(StagingJournal, WriteThatEndsShortIsAFailure) {
    tests::faulty_syscalls_t calls;
    calls.EndShort<&posix::syscalls_t::write>(5);
    try {
        AppendToJournal(Root(), kRun);
        FAIL();
    } catch (const posix::errno_exc_t& error) {
        EXPECT_EQ(error.Message(),
                  "Failed to write the journal of [" + Inside().string() + "]: No space left on device");
    }
}

TEST_F(StagingJournal, LinkInItsPlaceIsNotFollowed) {
    fs::create_symlink(Outside() / "made", File());
    EXPECT_THROW(AppendToJournal(Root(), kRun), posix::errno_exc_t);
    EXPECT_THROW(Read(), posix::errno_exc_t);
    EXPECT_FALSE(fs::exists(Outside() / "made"));
}

}  // namespace
}  // namespace agent
