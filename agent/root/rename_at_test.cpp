#include "agent/root/rename_at.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "mirrowen/exc/already_exists_exc.h"
#include "mirrowen/posix/errno_exc.h"
#include "tests/support/root_fixture.h"

namespace agent {
namespace {

namespace fs = std::filesystem;

/// A file system that does not know RENAME_NOREPLACE.
int PlainRenameOnly(int fromDir, const char* from, int toDir, const char* to, unsigned int flags) {
    if (flags != 0) {
        errno = EINVAL;
        return -1;
    }
    return posix::real_syscalls().renameat2(fromDir, from, toDir, to, flags);
}

class RenameAtTest : public tests::root_fixture_t, public testing::WithParamInterface<bool> {
  protected:
    RenameAtTest() : root_fixture_t(EResolver::eKernel), table_(posix::sys()) {
        if (GetParam()) {
            table_.renameat2 = &PlainRenameOnly;
        }
        scope_.emplace(table_);
        tests::WriteFile(Inside() / "from", "new");
    }

    void Rename(const std::string& from, const std::string& to, EReplace replace) {
        RenameAt(Root().GetDescriptor(), from, Root().GetDescriptor(), to, replace, "shown");
    }

  private:
    posix::syscalls_t table_;
    std::optional<posix::scoped_syscalls_t> scope_;
};

INSTANTIATE_TEST_SUITE_P(WithAndWithoutTheFlag, RenameAtTest, testing::Bool(),
                         [](const auto& one) { return one.param ? "Linking" : "Flag"; });

TEST_P(RenameAtTest, MovesFilesAndLinksToAFreeName) {
    Rename("from", "to", EReplace::eNo);
    EXPECT_EQ(tests::ReadFile(Inside() / "to"), "new");
    EXPECT_FALSE(fs::exists(Inside() / "from"));
    fs::create_symlink("dangling", Inside() / "link");
    Rename("link", "moved", EReplace::eNo);
    EXPECT_EQ(fs::read_symlink(Inside() / "moved"), "dangling");
    EXPECT_FALSE(fs::is_symlink(Inside() / "link"));
}

TEST_P(RenameAtTest, WithoutReplacingNothingIsTouchedWhateverIsThere) {
    tests::WriteFile(Inside() / "file", "old");
    fs::create_symlink("dangling", Inside() / "link");
    fs::create_directory(Inside() / "empty");
    const auto before = tests::SnapshotOf(Inside());
    for (const char* to : {"file", "link", "empty"}) {
        EXPECT_THROW(Rename("from", to, EReplace::eNo), exc::CAlreadyExistsExc) << to;
    }
    EXPECT_EQ(tests::SnapshotOf(Inside()), before);
}

TEST_P(RenameAtTest, ReplacingTakesFilesAndLinksButNoDirectory) {
    tests::WriteFile(Inside() / "file", "old");
    Rename("from", "file", EReplace::eYes);
    EXPECT_EQ(tests::ReadFile(Inside() / "file"), "new");
    fs::create_symlink(Outside() / "b/x", Inside() / "link");
    Rename("file", "link", EReplace::eYes);
    EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(Inside() / "link")));
    EXPECT_EQ(tests::ReadFile(Outside() / "b/x"), "secret");
    fs::create_directory(Inside() / "empty");
    try {
        Rename("link", "empty", EReplace::eYes);
        FAIL() << "the directory was replaced";
    } catch (const posix::errno_exc_t& error) {
        EXPECT_STREQ(error.what(), "Failed to rename to [shown]: Is a directory");
    }
}

}  // namespace
}  // namespace agent
