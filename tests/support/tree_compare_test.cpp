#include "tests/support/tree_compare.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <system_error>

#include "tests/support/temp_dir.h"

namespace tests {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

/// Two trees that are the same until a test changes the second.
class TreeCompare : public testing::Test {
  protected:
    TreeCompare() {
        for (const char* const tree : {"first", "second"}) {
            const std::string top = dir_ / tree;
            fs::create_directories(top + "/sub/deeper");
            WriteFile(top + "/file", "content");
            WriteFile(top + "/sub/pair", "two");
            fs::create_hard_link(top + "/sub/pair", top + "/sub/pair of it");
            fs::create_symlink("file", top + "/link");
            WriteFile(top + "/sparse", std::string(1 << 20, 's'));
            fs::resize_file(top + "/sparse", 4 << 20);
            for (const char* const name : {"", "/sub", "/sub/deeper", "/sub/pair", "/file", "/link", "/sparse"}) {
                SetTime(top + name, {1000, 5});
            }
        }
    }

    static void SetTime(const std::string& path, const timespec& time) {
        const std::array<timespec, 2> times{time, time};
        ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times.data(), AT_SYMLINK_NOFOLLOW), 0) << path;
    }
    std::string Second(const std::string& name) const { return dir_ / ("second/" + name); }
    void Retime(const std::string& name) const { SetTime(Second(name), {1000, 5}); }
    std::vector<std::string> Differences(const tree_compare_t& what = {}) const {
        return CompareTrees(dir_ / "first", dir_ / "second", what);
    }

  private:
    temp_dir_t dir_;
};

TEST_F(TreeCompare, SameTreesDoNotDiffer) {
    EXPECT_THAT(Differences(), IsEmpty());
}

TEST_F(TreeCompare, ContentOfTheSameLengthIsTold) {
    WriteFile(Second("file"), "conTent");
    Retime("file");
    EXPECT_THAT(Differences(), ElementsAre("file: content differs in 0-7"));
}

TEST_F(TreeCompare, ContentWhereOnlyOneHasDataIsTold) {
    const int file = ::open(Second("sparse").c_str(), O_WRONLY | O_CLOEXEC);
    ASSERT_EQ(::pwrite(file, "x", 1, 3 << 20), 1);
    ::close(file);
    Retime("sparse");
    EXPECT_THAT(Differences({.holes = false}), ElementsAre(HasSubstr("sparse: content differs in 31457")));
}

TEST_F(TreeCompare, SizeIsTold) {
    WriteFile(Second("file"), "content and more");
    Retime("file");
    EXPECT_THAT(Differences(), ElementsAre("file: size 7 against 16"));
}

TEST_F(TreeCompare, ZeroesInPlaceOfAHoleAreTold) {
    WriteFile(Second("sparse"), std::string(1 << 20, 's') + std::string(3 << 20, '\0'));
    Retime("sparse");
    EXPECT_THAT(Differences(), ElementsAre("sparse: data at 0-1048576 against 0-4194304"));
    EXPECT_THAT(Differences({.holes = false}), IsEmpty());
}

TEST_F(TreeCompare, ModeIsTold) {
    ASSERT_EQ(::chmod(Second("sub/deeper").c_str(), 01755), 0);
    EXPECT_THAT(Differences(), ElementsAre("sub/deeper: mode 493 against 1005"));
}

TEST_F(TreeCompare, TimeIsToldToTheNanosecond) {
    SetTime(Second("link"), {1000, 6});
    SetTime(Second(""), {-1, 5});
    EXPECT_THAT(Differences(), ElementsAre(".: time 1000.5 against -1.5", "link: time 1000.5 against 1000.6"));
}

TEST_F(TreeCompare, OwnersAreToldUnlessLeftOut) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root gives files away";
    }
    ASSERT_EQ(::lchown(Second("link").c_str(), 1, 2), 0);
    EXPECT_THAT(Differences(), ElementsAre("link: user 0 against 1", "link: group 0 against 2"));
    EXPECT_THAT(Differences({.owners = false}), IsEmpty());
}

TEST_F(TreeCompare, LinkTargetIsTold) {
    fs::remove(Second("link"));
    fs::create_symlink("file\n", Second("link"));
    Retime("link");
    Retime("");
    EXPECT_THAT(Differences(), ElementsAre("link: target [file] against [file\\x0a]"));
}

TEST_F(TreeCompare, TypeIsTold) {
    fs::remove(Second("file"));
    fs::create_directory(Second("file"));
    Retime("");
    EXPECT_THAT(Differences(), ElementsAre("file: type 32768 against 16384"));
}

TEST_F(TreeCompare, NameOnEitherSideOnlyIsTold) {
    fs::rename(Second("file"), Second("other\xff"));
    Retime("");
    EXPECT_THAT(Differences(), ElementsAre("other\\xff: missing in the first", "file: missing in the second"));
}

TEST_F(TreeCompare, AttributesAreToldUnlessIgnored) {
    ASSERT_EQ(::setxattr(Second("file").c_str(), "user.more", "", 0, 0), 0);
    ASSERT_EQ(::setxattr(Second("sub").c_str(), "user.value", "1", 1, 0), 0);
    ASSERT_EQ(::setxattr((Second("../first/sub")).c_str(), "user.value", "2", 1, 0), 0);
    EXPECT_THAT(Differences(), ElementsAre("file: attribute [user.more] is missing in the first",
                                           "sub: attribute [user.value] differs"));
    EXPECT_THAT(Differences({.ignoredAttributes = {"user.mo"}}), ElementsAre("sub: attribute [user.value] differs"));
}

TEST_F(TreeCompare, BrokenHardLinkIsToldUnlessLeftOut) {
    fs::remove(Second("sub/pair of it"));
    WriteFile(Second("sub/pair of it"), "two");
    Retime("sub/pair of it");
    Retime("sub");
    EXPECT_THAT(Differences(), ElementsAre("sub/pair of it: is the same file as [sub/pair] against [sub/pair of it]"));
    EXPECT_THAT(Differences({.hardLinks = false}), IsEmpty());
}

TEST_F(TreeCompare, HardLinkTooManyIsTold) {
    fs::remove(Second("file"));
    fs::create_hard_link(Second("sub/pair"), Second("file"));
    Retime("");
    EXPECT_THAT(Differences({.holes = false}),
                ElementsAre("file: size 7 against 3", "sub/pair: is the same file as [sub/pair] against [file]",
                            "sub/pair of it: is the same file as [sub/pair] against [file]"));
}

TEST_F(TreeCompare, MissingPlaceThrows) {
    EXPECT_THROW(CompareTrees(Second("nothing"), Second("")), std::system_error);
}

}  // namespace
}  // namespace tests
