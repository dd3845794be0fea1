#include "tests/support/awkward_tree.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <set>

#include "tests/support/as_nobody.h"
#include "tests/support/temp_dir.h"
#include "tests/support/tree_compare.h"

namespace tests {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

struct stat StatOf(const std::string& path) {
    struct stat found {};
    EXPECT_EQ(::lstat(path.c_str(), &found), 0) << path;
    return found;
}

TEST(AwkwardTree, IsTheSameEachTime) {
    const temp_dir_t dir;
    const awkward_parts_t parts{.allModes = false};
    const std::vector<std::string> leftOut = MakeAwkwardTree(dir / "first", parts);
    EXPECT_EQ(leftOut.empty(), ::geteuid() == 0);
    EXPECT_EQ(MakeAwkwardTree(dir / "second", parts), leftOut);
    std::vector<std::string> times;
    for (const std::string& difference : CompareTrees(dir / "first", dir / "second")) {
        if (difference.find(": time ") == std::string::npos) {
            times.push_back(difference);
        }
    }
    EXPECT_THAT(times, IsEmpty());
}

TEST(AwkwardTree, HasEachMode) {
    const temp_dir_t dir;
    MakeAwkwardTree(dir / "tree", {.hugeFile = false});
    std::set<mode_t> modes;
    for (mode_t mode = 0; mode < 010000; ++mode) {
        char name[8];
        std::snprintf(name, sizeof name, "%o", mode);
        struct stat found {};
        if (::stat((dir / "tree/all modes/" + name).c_str(), &found) == 0) {
            modes.insert(found.st_mode & 07777U);
        }
    }
    EXPECT_EQ(modes.size(), ::geteuid() == 0 ? 4096U : 2048U);
}

TEST(AwkwardTree, HugeFileAndHolesTakeNoRoom) {
    const temp_dir_t dir;
    MakeAwkwardTree(dir / "tree", {.allModes = false});
    const struct stat huge = StatOf(dir / "tree/4 GiB and 1");
    EXPECT_EQ(huge.st_size, (off_t{4} << 30) + 1);
    EXPECT_LT(huge.st_blocks * 512, 1 << 20);
    EXPECT_EQ(StatOf(dir / "tree/holes/nothing but a hole").st_blocks, 0);
    EXPECT_GE(StatOf(dir / "tree/holes/zeroes that are data").st_blocks * 512, 2 << 20);
    EXPECT_EQ(StatOf(dir / "tree/hard links/z last").st_nlink, 4U);
}

TEST(AwkwardTree, OrdinaryUserIsToldWhatIsLeftOut) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root becomes another user";
    }
    const temp_dir_t dir;
    ASSERT_EQ(::chmod(dir.path().c_str(), 0777), 0);
    const std::string leftOut = RunAsNobody([&] {
        std::string lines;
        for (const std::string& line : MakeAwkwardTree(dir / "tree", {.allModes = false})) {
            lines += line + "\n";
        }
        return lines;
    });
    EXPECT_EQ(leftOut,
              "modes/none, modes/write only: only root reads a file without the permission\n"
              "shut/111: only root lists a directory without the permission\n"
              "shut/0: only root lists a directory without the permission\n"
              "trusted.* attributes, attributes/capable: only root may set them\n"
              "owners: only root gives files away\n");
    EXPECT_EQ(StatOf(dir / "tree/modes/4755").st_uid, 65534U);
}

}  // namespace
}  // namespace tests
