#include "agent/tree/list_tree.h"

#include <filesystem>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "agent/copy/host_tree.h"
#include "agent/tree/opened_place.h"
#include "mirrowen/posix/errno_exc.h"
#include "tests/support/temp_dir.h"

namespace agent {
namespace {

using testing::ElementsAre;

/// A tree with an object that cannot be examined and a directory that cannot be listed.
class faulty_tree_t final : public tree_source_t {
  public:
    std::string Shown(const std::string& name) const override { return name; }
    std::optional<tree_entry_t> TryExamine(const std::string& name) override { return Directory(name); }
    std::vector<tree_entry_t> List(const std::string& directory) override {
        if (directory == "closed") {
            throw posix::errno_exc_t("Failed to list directory [%1]", directory, EACCES);
        }
        tree_entry_t broken;
        broken.name = "broken";
        broken.fault = "it is broken";
        return {broken, Directory("closed")};
    }

  private:
    static tree_entry_t Directory(const std::string& name) {
        tree_entry_t entry;
        entry.name = name;
        entry.brief.kind = EEntryKind::eDirectory;
        return entry;
    }
};

class ListTreeTest : public testing::Test {
  protected:
    ListTreeTest() {
        std::filesystem::create_directories(dir_ / "b.txt/inner");
        for (const char* const file : {"a.TXT", "c.log", "b.txt/x.txt", "b.txt/inner/y.log"}) {
            tests::WriteFile(dir_ / file, "");
        }
        std::filesystem::create_symlink("b.txt", dir_ / "link");
    }

    std::vector<std::string> List(const std::string& top, const list_options_t& options) {
        copy::host_tree_t tree(OpenPlainRoot(dir_.path()));
        return Told(tree, top, options);
    }
    static std::vector<std::string> Told(tree_source_t& tree, const std::string& top, const list_options_t& options) {
        std::vector<std::string> names;
        ListTree(tree, top, options, [&](const tree_entry_t& entry) {
            names.push_back(entry.fault.empty() ? entry.name : entry.name + ": " + entry.fault);
        });
        return names;
    }

    tests::temp_dir_t dir_;
};

TEST_F(ListTreeTest, DirectoryIsToldByWhatIsInIt) {
    EXPECT_THAT(List("", {}), ElementsAre("a.TXT", "b.txt", "c.log", "link"));
    EXPECT_THAT(List("b.txt", {}), ElementsAre("b.txt/inner", "b.txt/x.txt"));
    EXPECT_THAT(List("b.txt/inner/y.log", {}), ElementsAre("b.txt/inner/y.log"));
}

TEST_F(ListTreeTest, RecursionGoesDownAndThroughNoLink) {
    EXPECT_THAT(List("", {true, ""}),
                ElementsAre("a.TXT", "b.txt", "b.txt/inner", "b.txt/inner/y.log", "b.txt/x.txt", "c.log", "link"));
    EXPECT_THAT(List("link", {true, ""}), ElementsAre("link"));
}

TEST_F(ListTreeTest, MaskFiltersNamesAndNotTheWayDown) {
    EXPECT_THAT(List("", {false, "*.txt"}), ElementsAre("a.TXT", "b.txt"));
    EXPECT_THAT(List("", {true, "*.log; a*"}), ElementsAre("a.TXT", "b.txt/inner/y.log", "c.log"));
    EXPECT_THAT(List("c.log", {false, "*.txt"}), ElementsAre());
}

TEST_F(ListTreeTest, FaultsAreToldAndTheRestGoesOn) {
    faulty_tree_t tree;
    EXPECT_THAT(Told(tree, "", {}), ElementsAre("broken: it is broken", "closed"));
    EXPECT_THAT(
        Told(tree, "", {true, ""}),
        ElementsAre("broken: it is broken", "closed", "closed: Failed to list directory [closed]: Permission denied"));
}

TEST_F(ListTreeTest, WhatIsNotThereOrCannotBeListedIsAnError) {
    EXPECT_THROW(List("missing", {}), posix::errno_exc_t);
    faulty_tree_t tree;
    EXPECT_THROW(Told(tree, "closed", {}), posix::errno_exc_t);
    EXPECT_THROW(List("", {false, "(a"}), std::exception);
}

}  // namespace
}  // namespace agent
