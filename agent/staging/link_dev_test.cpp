#include "agent/staging/link_dev.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "mirrowen/exc/already_exists_exc.h"
#include "mirrowen/exc/runtime_exc.h"
#include "tests/support/staging_fixture.h"

namespace agent {
namespace {

namespace fs = std::filesystem;
using tests::TextOf;

class LinkDev : public tests::staging_fixture_t {
  protected:
    static item_t Link(const std::string& path, const std::string& target) {
        item_t item = Item(EItemKind::eLink, path);
        item.second = target;
        item.info.type = util::EFileType::eSymlink;
        item.info.owner = {"", 1234};
        item.info.group = {"", 2345};
        item.info.mode = 0777;
        item.info.modificationTime = {1100000000, 7};
        return item;
    }

    std::string TargetOf(const std::string& name) const { return fs::read_symlink(Inside() / name).string(); }
};

TEST_F(LinkDev, LinkArrivesWithOwnerAndTimes) {
    Receive(Link("p/link", "../some\xff where"), "");
    EXPECT_EQ(TargetOf("p/link"), "../some\xff where");
    struct stat found {};
    ASSERT_EQ(::lstat((Inside() / "p/link").c_str(), &found), 0);
    EXPECT_EQ(found.st_uid, 1234U);
    EXPECT_EQ(found.st_gid, 2345U);
    EXPECT_EQ(found.st_mtim.tv_sec, 1100000000);
    EXPECT_EQ(found.st_mtim.tv_nsec, 7);
    EXPECT_EQ(Staged().size(), 0U);
}

TEST_F(LinkDev, TargetIsContentAndNeverTouched) {
    const auto before = tests::SnapshotOf(Outside());
    Receive(Link("out", (Outside() / "b/x").string()), "");
    EXPECT_EQ(TargetOf("out"), (Outside() / "b/x").string());
    EXPECT_EQ(tests::SnapshotOf(Outside()), before);
    Receive(Link("plain", "x"), "");
    item_t bare = Link("bare", std::string(4095, 't'));
    bare.info = {};
    Receive(bare, "");
    EXPECT_EQ(TargetOf("bare").size(), 4095U);
}

TEST_F(LinkDev, PlantedLinkLeadsNoLaterItemOut) {
    const auto before = tests::SnapshotOf(Outside());
    Receive(Link("evil", Outside().string()), "");
    for (const EItemKind kind : {EItemKind::eFile, EItemKind::eDirectory, EItemKind::eLink}) {
        for (const char* path : {"evil/b/x", "evil/new", "evil/b"}) {
            const std::string text = TextOf([&] { Receive(Item(kind, path), "", true); });
            EXPECT_NE(text.find("Too many levels of symbolic links"), std::string::npos) << path << ": " << text;
        }
    }
    EXPECT_EQ(tests::SnapshotOf(Outside()), before);
}

TEST_F(LinkDev, WithoutOverwritingWhatIsThereIsToldEarlyOrLate) {
    EXPECT_THROW(Make(Link("top", "x")), exc::CAlreadyExistsExc);
    EXPECT_THROW(Make(Link("a", "x")), exc::CAlreadyExistsExc);
    const dev_t dev = Make(Link("late", "x"));
    tests::WriteFile(Inside() / "late", "old");
    EXPECT_THROW(dev->Finish(nullptr), exc::CAlreadyExistsExc);
    EXPECT_EQ(tests::ReadFile(Inside() / "late"), "old");
    EXPECT_EQ(Staged().size(), 0U);
}

TEST_F(LinkDev, OverwritingReplacesFilesAndLinksButNoDirectory) {
    Receive(Link("top", "one"), "", true);
    EXPECT_EQ(TargetOf("top"), "one");
    Receive(Link("top", "two"), "", true);
    EXPECT_EQ(TargetOf("top"), "two");
    EXPECT_EQ(TextOf([&] { Receive(Link("a", "x"), "", true); }),
              "[" + (Inside() / "a").string() + "] is a directory and is not replaced.");
    EXPECT_EQ(Staged().size(), 0U);
}

TEST_F(LinkDev, ContentIsRefused) {
    const dev_t dev = Make(Link("l", "x"));
    EXPECT_EQ(TextOf([&] { dev->Write(tests::AreaOf("x", 0)); }),
              "An item of kind [link] takes no content: [" + (Inside() / "l").string() + "].");
}

TEST_F(LinkDev, ADirectorySwappedForALinkBetweenAnyTwoStepsLeadsNowhere) {
    for (const char* swapped : {"a", "a/b"}) {
        for (int step = 0;; ++step) {
            SCOPED_TRACE(std::string(swapped) + " swapped before step " + std::to_string(step));
            StartOver();
            const auto before = tests::SnapshotOf(Outside());
            const tests::step_hook_t hook(step, [&] { PlantLink(swapped, true); });
            TextOf([&] { Receive(Link("a/b/x", "evil"), "", true); });
            EXPECT_EQ(tests::SnapshotOf(Outside()), before);
            EXPECT_EQ(Staged().size(), 0U);
            if (!hook.HasRun()) {
                EXPECT_GT(step, 4);
                break;
            }
        }
    }
}

}  // namespace
}  // namespace agent
