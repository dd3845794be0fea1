#include "agent/verify/verify.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "mirrowen/exc/exception.h"
#include "tests/support/temp_dir.h"

namespace agent::verify {
namespace {

namespace fs = std::filesystem;

// Two equal trees, to be changed in one way by each test.
class Verify : public ::testing::Test {
  protected:
    void SetUp() override {
        for (const char* side : {"a", "b"}) {
            const std::string root = At(side);
            fs::create_directories(root + "/sub/empty");
            std::ofstream(root + "/sub/file") << std::string(10000, 'x');
            std::ofstream(root + "/nothing") << "";
            fs::create_symlink("sub/file", root + "/link");
            for (const char* name : {"/sub/file", "/nothing", "/link", "/sub/empty", "/sub", ""}) {
                SetTime(root + name, 1000000000, 123456789);
            }
        }
    }

    std::string At(const std::string& name) const { return dir_.path() + "/" + name; }

    static void SetTime(const std::string& path, time_t seconds, long nanoseconds) {
        const timespec times[2] = {{seconds, nanoseconds}, {seconds, nanoseconds}};
        ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0);
    }

    // Changes that touch a directory's own time are put right, so that each test sees its one difference.
    void Restore(const std::string& path) { SetTime(At(path), 1000000000, 123456789); }

    std::vector<std::string> Differences(const verify_options_t& options = {}) const {
        std::vector<std::string> texts;
        for (const difference_t& difference : agent::verify::Verify(At("a"), At("b"), options).differences) {
            texts.push_back(difference.path + ": " + difference.text);
        }
        return texts;
    }

    using texts_t = std::vector<std::string>;
    tests::temp_dir_t dir_;
};

TEST_F(Verify, EqualTreesHaveNoDifferencesAndAreCounted) {
    const verify_report_t report = agent::verify::Verify(At("a"), At("b"), {});
    EXPECT_TRUE(report.differences.empty());
    EXPECT_EQ(report.files, 2u);
    EXPECT_EQ(report.directories, 3u);
    EXPECT_EQ(report.links, 1u);
    EXPECT_EQ(report.bytes, 10000u);
}

TEST_F(Verify, ContentThatDiffersIsNamedWithItsFirstByte) {
    std::fstream file(At("b/sub/file"));
    file.seekp(4096);
    file << 'y';
    file.close();
    Restore("b/sub/file");
    EXPECT_EQ(Differences(), texts_t{"sub/file: content differs at byte 4096"});
}

TEST_F(Verify, SizeThatDiffersIsNamed) {
    fs::resize_file(At("b/sub/file"), 9999);
    Restore("b/sub/file");
    EXPECT_EQ(Differences(), texts_t{"sub/file: size 10000 against 9999"});
}

TEST_F(Verify, MissingAndExtraObjectsAreNamed) {
    fs::remove(At("b/nothing"));
    std::ofstream(At("b/sub/more")) << "";
    Restore("b");
    Restore("b/sub");
    EXPECT_EQ(Differences(), (texts_t{"nothing: missing in the second", "sub/more: only in the second"}));
}

TEST_F(Verify, MissingDirectoryIsNamedOnceAndItsContentsToo) {
    fs::remove_all(At("b/sub"));
    Restore("b");
    EXPECT_EQ(Differences(), (texts_t{"sub: missing in the second", "sub/empty: missing in the second",
                                      "sub/file: missing in the second"}));
}

TEST_F(Verify, TypesThatDifferAreNamed) {
    fs::remove(At("b/link"));
    std::ofstream(At("b/link")) << "x";
    Restore("b");
    EXPECT_EQ(Differences(), texts_t{"link: link against file"});
}

TEST_F(Verify, LinkTargetsAreCompared) {
    fs::remove(At("b/link"));
    fs::create_symlink("elsewhere", At("b/link"));
    Restore("b/link");
    Restore("b");
    EXPECT_EQ(Differences(), texts_t{"link: link target differs"});
}

TEST_F(Verify, ModeIsCompared) {
    ASSERT_EQ(::chmod(At("a/nothing").c_str(), 0640), 0);
    ASSERT_EQ(::chmod(At("b/nothing").c_str(), 04755), 0);
    EXPECT_EQ(Differences(), texts_t{"nothing: mode 0640 against 4755"});
}

TEST_F(Verify, TimesAreComparedToTheNanosecond) {
    SetTime(At("b/link"), 1000000000, 123456788);
    EXPECT_EQ(Differences(), texts_t{"link: modification time 1000000000.123456789 against 1000000000.123456788"});
}

TEST_F(Verify, ExtendedAttributesAreCompared) {
    ASSERT_EQ(::setxattr(At("a/nothing").c_str(), "user.one", "1", 1, 0), 0);
    ASSERT_EQ(::setxattr(At("a/nothing").c_str(), "user.two", "1", 1, 0), 0);
    ASSERT_EQ(::setxattr(At("b/nothing").c_str(), "user.two", "2", 1, 0), 0);
    ASSERT_EQ(::setxattr(At("b/nothing").c_str(), "user.three", "1", 1, 0), 0);
    EXPECT_EQ(Differences(), (texts_t{"nothing: extended attribute user.one is missing in the second",
                                      "nothing: extended attribute user.two differs",
                                      "nothing: extended attribute user.three is only in the second"}));
}

TEST_F(Verify, OwnersAreComparedUnlessLeftOut) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root can give files away";
    }
    ASSERT_EQ(::lchown(At("b/nothing").c_str(), 54321, 54322), 0);
    EXPECT_EQ(Differences().size(), 2u);
    EXPECT_NE(Differences()[0].find("nothing: owner root against 54321"), std::string::npos) << Differences()[0];
    verify_options_t without;
    without.owners = false;
    EXPECT_TRUE(Differences(without).empty());
}

TEST_F(Verify, SpecialFilesOfTheFirstSideAreLeftOut) {
    ASSERT_EQ(::mkfifo(At("a/pipe").c_str(), 0600), 0);
    Restore("a");
    EXPECT_EQ(Differences(), texts_t{});
}

TEST_F(Verify, StagingFolderAtTheTopIsLeftOut) {
    fs::create_directory(At("b/.tarn-staging"));
    Restore("b");
    EXPECT_EQ(Differences(), texts_t{});
}

TEST_F(Verify, SingleFilesAreCompared) {
    EXPECT_TRUE(agent::verify::Verify(At("a/sub/file"), At("b/sub/file"), {}).differences.empty());
    const auto report = agent::verify::Verify(At("a/sub/file"), At("b/nothing"), {});
    ASSERT_EQ(report.differences.size(), 1u);
    EXPECT_EQ(report.differences[0].path, "");
    EXPECT_EQ(report.differences[0].text, "size 10000 against 0");
}

TEST_F(Verify, ManyDifferencesAreCountedBeyondTheFirstThousand) {
    for (int i = 0; i < 1100; ++i) {
        std::ofstream(At("a/x" + std::to_string(i))) << "";
    }
    Restore("a");
    const auto report = agent::verify::Verify(At("a"), At("b"), {});
    ASSERT_EQ(report.differences.size(), 1001u);
    EXPECT_EQ(report.differences.back().text, "100 more differences");
}

TEST_F(Verify, PlaceThatIsNotThereIsAnError) {
    EXPECT_THROW(agent::verify::Verify(At("a"), At("missing"), {}), exc::CException);
    EXPECT_THROW(agent::verify::Verify(At("missing"), At("a"), {}), exc::CException);
    EXPECT_THROW(agent::verify::Verify("tarn://127.0.0.1:1/x", At("a"), {}), exc::CException);
}

}  // namespace
}  // namespace agent::verify
