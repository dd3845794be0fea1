#include "agent/staging/hard_link_dev.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "mirrowen/exc/already_exists_exc.h"
#include "tests/support/staging_fixture.h"

namespace agent {
namespace {

namespace fs = std::filesystem;
using tests::TextOf;

class HardLinkDev : public tests::staging_fixture_t {
  protected:
    static item_t HardLink(const std::string& path, const std::string& first) {
        item_t item = Item(EItemKind::eHardLink, path);
        item.second = first;
        return item;
    }

    std::string Shown(const std::string& name) const { return (Inside() / name).string(); }
};

TEST_F(HardLinkDev, IsAFurtherNameForTheFile) {
    Receive(HardLink("p/q/second", "a/b/x"), "");
    EXPECT_TRUE(fs::equivalent(Inside() / "p/q/second", Inside() / "a/b/x"));
    EXPECT_EQ(Staged().size(), 0U);
}

TEST_F(HardLinkDev, WhatIsThereIsReplacedOnlyWhenThatIsAllowed) {
    EXPECT_THROW(Make(HardLink("top", "a/b/x")), exc::CAlreadyExistsExc);
    Receive(HardLink("top", "a/b/x"), "", true);
    EXPECT_EQ(tests::ReadFile(Inside() / "top"), "inside");
    EXPECT_TRUE(fs::equivalent(Inside() / "top", Inside() / "a/b/x"));
}

TEST_F(HardLinkDev, ThatIsThereAlreadyLeavesNothingStaged) {
    fs::create_hard_link(Inside() / "a/b/x", Inside() / "second");
    Receive(HardLink("second", "a/b/x"), "", true);
    EXPECT_TRUE(fs::equivalent(Inside() / "second", Inside() / "a/b/x"));
    EXPECT_EQ(fs::hard_link_count(Inside() / "second"), 2U);
    EXPECT_EQ(Staged().size(), 0U);
}

TEST_F(HardLinkDev, LinkIsLinkedItselfAndNotItsTarget) {
    fs::create_symlink(Outside() / "b/x", Inside() / "link");
    Receive(HardLink("second", "link"), "");
    EXPECT_TRUE(fs::is_symlink(Inside() / "second"));
    EXPECT_EQ(fs::hard_link_count(Outside() / "b/x"), 1U);
}

TEST_F(HardLinkDev, NoNameLeadsThroughALink) {
    fs::create_directory_symlink(Outside(), Inside() / "out");
    EXPECT_NE(TextOf([&] { Receive(HardLink("second", "out/b/x"), ""); }), "");
    EXPECT_NE(TextOf([&] { Receive(HardLink("out/second", "a/b/x"), ""); }), "");
    EXPECT_EQ(fs::hard_link_count(Outside() / "b/x"), 1U);
    EXPECT_FALSE(fs::exists(Outside() / "second"));
    EXPECT_EQ(Staged().size(), 0U);
}

TEST_F(HardLinkDev, FirstNameOutsideTheRootIsRefusedAtOnce) {
    for (const char* first : {"/etc/passwd", "../outside/b/x", ".tarn-staging/lock", "a//b"}) {
        EXPECT_NE(TextOf([&] { Make(HardLink("second", first)); }).find("is refused: "), std::string::npos) << first;
    }
}

TEST_F(HardLinkDev, DirectoryAndMissingFirstNameAreNamed) {
    EXPECT_EQ(TextOf([&] { Receive(HardLink("second", "a"), ""); }),
              "Failed to link to [" + Shown("a") + "]: Operation not permitted");
    EXPECT_EQ(TextOf([&] { Receive(HardLink("second", "none"), ""); }),
              "Failed to link to [" + Shown("none") + "]: No such file or directory");
    EXPECT_FALSE(fs::exists(Inside() / "second"));
}

TEST_F(HardLinkDev, ADirectorySwappedForALinkBetweenAnyTwoStepsLeadsNowhere) {
    for (const char* swapped : {"a", "a/b", "a/b/x"}) {
        for (int step = 0;; ++step) {
            SCOPED_TRACE(std::string(swapped) + " swapped before step " + std::to_string(step));
            StartOver();
            const auto before = tests::SnapshotOf(Outside());
            const tests::step_hook_t hook(step, [&] { PlantLink(swapped, true); });
            TextOf([&] { Receive(HardLink("a/second", "a/b/x"), "", true); });
            EXPECT_EQ(tests::SnapshotOf(Outside()), before);
            EXPECT_EQ(fs::hard_link_count(Outside() / "b/x"), 1U);
            EXPECT_EQ(Staged().size(), 0U);
            if (!hook.HasRun()) {
                break;
            }
        }
    }
}

}  // namespace
}  // namespace agent
