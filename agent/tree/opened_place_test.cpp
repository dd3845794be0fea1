#include "agent/tree/opened_place.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>

#include "mirrowen/posix/errno_exc.h"
#include "tests/support/temp_dir.h"

namespace agent {
namespace {

namespace fs = std::filesystem;

class OpenedPlace : public ::testing::Test {
  protected:
    void SetUp() override {
        fs::create_directories(At("dir/sub"));
        std::ofstream(At("dir/file")) << "text";
        fs::create_symlink("file", At("dir/filelink"));
        fs::create_directory_symlink("sub", At("dir/dirlink"));
    }
    std::string At(const std::string& name) const { return dir_.path() + "/" + name; }

    tests::temp_dir_t dir_;
};

TEST_F(OpenedPlace, NamedObjectIsFoundInItsHeldDirectory) {
    const opened_place_t place = OpenPlace(At("dir/file"));
    EXPECT_EQ(place.top, "file");
    EXPECT_EQ(place.baseName, "file");
    EXPECT_TRUE(S_ISREG(place.root->Stat(place.top).st_mode));
}

TEST_F(OpenedPlace, LinkAtTheEndIsNotFollowed) {
    const opened_place_t place = OpenPlace(At("dir/filelink"));
    EXPECT_TRUE(S_ISLNK(place.root->Stat(place.top).st_mode));
    EXPECT_EQ(place.baseName, "filelink");
}

TEST_F(OpenedPlace, TrailingSlashFollowsTheLinkAndKeepsItsName) {
    const opened_place_t directory = OpenPlace(At("dir/dirlink/"));
    EXPECT_EQ(directory.top, "sub");
    EXPECT_EQ(directory.baseName, "dirlink");
    EXPECT_TRUE(S_ISDIR(directory.root->Stat(directory.top).st_mode));
    const opened_place_t file = OpenPlace(At("dir/filelink/"));
    EXPECT_EQ(file.top, "file");
    EXPECT_EQ(file.baseName, "filelink");
}

TEST_F(OpenedPlace, LinkOnTheWayIsFollowed) {
    std::ofstream(At("dir/sub/deep")) << "text";
    const opened_place_t place = OpenPlace(At("dir/dirlink/deep"));
    EXPECT_EQ(place.top, "deep");
    EXPECT_TRUE(S_ISREG(place.root->Stat(place.top).st_mode));
}

TEST_F(OpenedPlace, DotDotAndRootHaveNoNameOfTheirOwn) {
    for (const std::string& path :
         {At("dir/."), At("dir/sub/.."), std::string("/"), std::string("."), std::string("//")}) {
        const opened_place_t place = OpenPlace(path);
        EXPECT_EQ(place.top, "") << path;
        EXPECT_EQ(place.baseName, "") << path;
    }
}

TEST_F(OpenedPlace, NameWithoutADirectoryIsInTheWorkingDirectory) {
    ASSERT_EQ(::chdir(At("dir").c_str()), 0);
    const opened_place_t place = OpenPlace("file");
    EXPECT_TRUE(S_ISREG(place.root->Stat(place.top).st_mode));
    ASSERT_EQ(::chdir("/"), 0);
}

TEST_F(OpenedPlace, MissingObjectIsNamed) {
    for (const std::string& path : {At("dir/missing"), At("missing/file"), At("dir/missing/")}) {
        try {
            OpenPlace(path);
            FAIL() << path;
        } catch (const posix::errno_exc_t& error) {
            EXPECT_EQ(error.GetErrno(), ENOENT) << path;
            EXPECT_NE(error.Message().find("missing"), std::string::npos) << error.Message();
        }
    }
}

}  // namespace
}  // namespace agent
