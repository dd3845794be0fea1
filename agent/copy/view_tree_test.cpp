#include "agent/copy/view_tree.h"

#include <sys/stat.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "agent/tree/walk_tree.h"
#include "tests/support/caught_error.h"
#include "tests/support/temp_dir.h"

namespace agent::copy {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using tests::CatchError;
using tests::Throws;

std::uint64_t InodeOf(const std::string& path) {
    struct stat found {};
    EXPECT_EQ(::stat(path.c_str(), &found), 0) << path;
    return found.st_ino;
}

/// Notes what a walk finds.
class names_t final : public tree_visitor_t {
  public:
    void OnEntry(const tree_entry_t& entry) override { names.push_back(entry.name); }
    void OnDirectoryLeft(const tree_entry_t&) override {}
    void OnUnreadable(const std::string& name, const std::string& fault) override {
        names.push_back(name + ": " + fault);
    }
    std::vector<std::string> names;
};

/// Two backed-up volumes, "/" in "<dir>/system" and "/srv/data" in "<dir>/data", and a secret beside them.
class ViewTree : public testing::Test {
  protected:
    ViewTree() {
        for (const char* const directory : {"system/etc", "system/srv/data/hidden", "data/sub", "secret"}) {
            fs::create_directories(At(directory));
        }
        for (const char* const file : {"system/etc/hostname", "data/file", "data/sub/deep", "secret/key"}) {
            tests::WriteFile(At(file), file);
        }
        fs::create_symlink(At("secret"), At("data/out"));
        fs::create_symlink("../../etc", At("data/in"));
        rules_->AddMappingRule(At("system"), "/");
        rules_->AddMappingRule(At("data"), "/srv/data");
    }

    std::string At(const std::string& name) const { return dir_ / name; }
    std::vector<std::string> Walk(const std::string& top) {
        names_t names;
        WalkTree(tree_, top, names);
        return names.names;
    }

    tests::temp_dir_t dir_;
    std::shared_ptr<tarn::CFLRContext> rules_ = std::make_shared<tarn::CFLRContext>();
    view_tree_t tree_{rules_};
    std::vector<copy_note_t> warnings_;
};

TEST_F(ViewTree, NamesAreThoseOfTheBackedUpMachineAcrossItsMountPoints) {
    EXPECT_THAT(Walk(""), ElementsAre("", "etc", "etc/hostname", "srv", "srv/data", "srv/data/file", "srv/data/in",
                                      "srv/data/out", "srv/data/sub", "srv/data/sub/deep"));
    EXPECT_THAT(Walk("srv/data/sub"), ElementsAre("srv/data/sub", "srv/data/sub/deep"));
    EXPECT_EQ(tree_.Shown("etc/hostname"), "FlrFS:///etc/hostname");
}

TEST_F(ViewTree, MountPointIsWhatIsMountedThere) {
    EXPECT_EQ(tree_.TryExamine("srv/data")->brief.inode, InodeOf(At("data")));
    const auto entries = tree_.List("srv");
    ASSERT_EQ(entries.size(), 1U);
    EXPECT_EQ(entries.front().brief.inode, InodeOf(At("data")));
}

TEST_F(ViewTree, MountPointWhoseDirectoryIsMissingIsReachedByName) {
    rules_->AddMappingRule(At("data/sub"), "/media/disk");
    EXPECT_THAT(Walk("media/disk"), ElementsAre("media/disk", "media/disk/deep"));
    for (const tree_entry_t& entry : tree_.List("")) {
        EXPECT_NE(entry.name, "media");
    }
}

TEST_F(ViewTree, MountPointThatCannotBeOpenedIsAFaultOfItsEntry) {
    rules_->AddMappingRule(At("gone"), "/etc");
    const auto entries = tree_.List("");
    ASSERT_EQ(entries.size(), 2U);
    EXPECT_THAT(entries.front().fault, testing::HasSubstr("No such file or directory"));
    EXPECT_EQ(entries.back().fault, "");
}

TEST_F(ViewTree, LinksAreObjectsAndLeadNowhere) {
    EXPECT_EQ(tree_.TryExamine("srv/data/out")->brief.kind, EEntryKind::eLink);
    EXPECT_EQ(tree_.TryExamine("srv/data/out")->brief.target, At("secret"));
    EXPECT_EQ(tree_.TryExamine("srv/data/out/key"), std::nullopt);
    EXPECT_EQ(tree_.TryExamine("srv/data/in/hostname"), std::nullopt);
    EXPECT_NE(CatchError([&] { tree_.List("srv/data/out"); }).what, "");
}

TEST_F(ViewTree, ObjectsAreLoadedFromWhereTheyLie) {
    const auto entry = tree_.TryExamine("srv/data/sub/deep");
    const loaded_item_t loaded = tree_.Load(*entry, "target", {}, warnings_);
    EXPECT_EQ(loaded.item.path, "target");
    EXPECT_EQ(loaded.size, 13U);
    EXPECT_NE(loaded.source->ReadNext(), nullptr);
    const loaded_item_t link = tree_.Load(*tree_.TryExamine("srv/data/in"), "l", {}, warnings_);
    EXPECT_EQ(link.item.second, "../../etc");
    EXPECT_TRUE(warnings_.empty());
}

TEST_F(ViewTree, NameOnNoMountPointIsAnError) {
    rules_->Reset();
    rules_->AddMappingRule(At("data"), "/srv/data");
    const std::string text = "No suitable mapping rule was found for a given path.";
    EXPECT_THAT(CatchError([&] { tree_.TryExamine("srv"); }), Throws("exc::CRuntimeExc", text));
    EXPECT_THAT(CatchError([&] { tree_.List(""); }), Throws("exc::CRuntimeExc", text));
    EXPECT_THAT(Walk("srv/data/sub"), ElementsAre("srv/data/sub", "srv/data/sub/deep"));
}

TEST_F(ViewTree, NameThatLeadsOutIsRefused) {
    for (const char* const name : {"srv/data/../../../secret/key", "srv/data/..", "etc/./hostname"}) {
        EXPECT_NE(CatchError([&] { tree_.TryExamine(name); }).what, "") << name;
    }
}

}  // namespace
}  // namespace agent::copy
