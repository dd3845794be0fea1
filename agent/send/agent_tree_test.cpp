#include "agent/send/agent_tree.h"

#include <sys/stat.h>

#include <filesystem>

#include <gmock/gmock.h>

#include "agent/copy/open_tree.h"
#include "agent/tree/walk_tree.h"
#include "tests/support/caught_error.h"
#include "tests/support/fake_clock.h"
#include "tests/support/send_server.h"
#include "tests/support/temp_dir.h"

namespace agent::send {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

/// Notes what a walk finds.
class noting_visitor_t final : public tree_visitor_t {
  public:
    void OnEntry(const tree_entry_t& entry) override { seen.push_back("+" + entry.name); }
    void OnDirectoryLeft(const tree_entry_t& entry) override { seen.push_back("-" + entry.name); }
    void OnUnreadable(const std::string& name, const std::string& fault) override {
        seen.push_back("!" + name + " " + fault);
    }
    std::vector<std::string> seen;
};

class AgentTree : public testing::Test {
  protected:
    AgentTree() {
        std::filesystem::create_directories(dir_ / "dir/deep");
        tests::WriteFile(dir_ / "dir/b", "bb");
        tests::WriteFile(dir_ / "dir/a", "a");
        std::filesystem::create_symlink("a", dir_ / "dir/link");
    }

    std::string Shown(const std::string& name) const {
        return "tarn://" + net::ToString(server_.Endpoint()) + "/" + name;
    }
    tree_entry_t Entry(const std::string& name) {
        const auto entry = tree_.TryExamine(name);
        EXPECT_TRUE(entry.has_value()) << name;
        return entry.value_or(tree_entry_t{});
    }
    copy::loaded_item_t Load(const std::string& name, const copy::load_options_t& options = {}) {
        return tree_.Load(Entry(name), "there", options, warnings_);
    }

    tests::temp_dir_t dir_;
    tests::send_server_t server_{dir_.path()};
    agent_tree_t tree_{server_.Endpoint(), {}, io::block::EBufTransformType::eLz4};
    std::vector<copy::copy_note_t> warnings_;
};

TEST_F(AgentTree, ListsADirectoryWithFullNamesInOrder) {
    std::vector<std::string> names;
    for (const tree_entry_t& entry : tree_.List("dir")) {
        names.push_back(entry.name);
        EXPECT_EQ(entry.fault, "");
        EXPECT_EQ(entry.brief, Entry(entry.name).brief);
    }
    EXPECT_THAT(names, ElementsAre("dir/a", "dir/b", "dir/deep", "dir/link"));
    EXPECT_THAT(tests::CatchError([&] { tree_.List("missing"); }).what, HasSubstr("missing"));
}

TEST_F(AgentTree, ExaminesWithoutFollowingLinks) {
    EXPECT_EQ(Entry("dir/link").brief.target, "a");
    EXPECT_EQ(Entry("").brief.kind, EEntryKind::eDirectory);
    EXPECT_FALSE(tree_.TryExamine("missing"));
    EXPECT_FALSE(tree_.TryExamine("dir/link/below"));
    EXPECT_EQ(tree_.Shown("dir/a"), Shown("dir/a"));
    EXPECT_EQ(tree_.Shown(""), Shown(""));
}

TEST_F(AgentTree, IsWalkedLikeAnyOther) {
    noting_visitor_t visitor;
    WalkTree(tree_, "", visitor);
    EXPECT_THAT(visitor.seen,
                ElementsAre("+", "+dir", "+dir/a", "+dir/b", "+dir/deep", "-dir/deep", "+dir/link", "-dir", "-"));
}

TEST_F(AgentTree, LoadsEachKindUnderItsNewName) {
    copy::loaded_item_t file = Load("dir/b");
    EXPECT_EQ(file.item.kind, EItemKind::eFile);
    EXPECT_EQ(file.item.path, "there");
    EXPECT_EQ(file.size, 2U);
    EXPECT_EQ(tests::ReadAllOf(*file.source), "bb");
    EXPECT_FALSE(file.hasChanged());
    const copy::loaded_item_t link = Load("dir/link");
    EXPECT_EQ(link.item.kind, EItemKind::eLink);
    EXPECT_EQ(link.item.second, "a");
    EXPECT_EQ(link.source->ReadNext(), nullptr);
    for (const std::string name : {"dir", ""}) {
        const copy::loaded_item_t directory = Load(name);
        EXPECT_EQ(directory.item.kind, EItemKind::eDirectory);
        EXPECT_EQ(directory.item.path, "there");
        EXPECT_TRUE(directory.item.info.isSet());
    }
    EXPECT_THAT(warnings_, IsEmpty());
}

TEST_F(AgentTree, LoadsTheRestOfAFile) {
    const copy::loaded_item_t file = Load("dir/b", {.startOffset = 1});
    EXPECT_EQ(file.item.startOffset, 1U);
    EXPECT_EQ(file.size, 2U) << "the size is that of the whole file";
    EXPECT_EQ(tests::ReadAllOf(*file.source), "b");
}

TEST_F(AgentTree, WhatHasBecomeSomethingElseIsNotLoaded) {
    const tree_entry_t file = Entry("dir/b");
    std::filesystem::remove(dir_ / "dir/b");
    std::filesystem::create_directory(dir_ / "dir/b");
    EXPECT_THAT(tests::CatchError([&] { tree_.Load(file, "there", {}, warnings_); }),
                tests::ThrowsText("[" + Shown("dir/b") + "] is a directory now, no longer a file."));
}

TEST_F(AgentTree, WhatHasGoneFailsByNameAndTheTreeGoesOn) {
    const tree_entry_t file = Entry("dir/b");
    std::filesystem::remove(dir_ / "dir/b");
    EXPECT_EQ(tests::CatchError([&] { tree_.Load(file, "there", {}, warnings_); }).message,
              "Failed to read [" + Shown("dir/b") + "].");
    EXPECT_EQ(tests::ReadAllOf(*Load("dir/a").source), "a");
}

TEST_F(AgentTree, ConnectionsThatTheFarEndMayHaveGivenUpAreOpenedAnew) {
    tests::fake_clock_t clock;
    EXPECT_EQ(tests::ReadAllOf(*Load("dir/a").source), "a");
    clock.Advance(std::chrono::seconds(61));
    EXPECT_EQ(tests::ReadAllOf(*Load("dir/a").source), "a");
    EXPECT_EQ(server_.WaitEnded(2), std::vector<std::string>(2)) << "the old ones were ended in order";
}

TEST_F(AgentTree, IsOpenedByItsLocationWhenSomethingIsThere) {
    const auto open = [&](const std::string& name) {
        return copy::TryOpenTree(Shown(name), {}, io::block::EBufTransformType::eNone);
    };
    const auto opened = open("dir/a");
    ASSERT_TRUE(opened);
    EXPECT_EQ(opened->top, "dir/a");
    EXPECT_EQ(opened->baseName, "a");
    EXPECT_EQ(opened->tree->Shown("x"), Shown("x"));
    EXPECT_EQ(open("dir/")->baseName, "dir");
    EXPECT_EQ(open("")->baseName, "");
    EXPECT_THAT(tests::CatchError([&] { open("missing"); }).what,
                HasSubstr("Failed to open [" + Shown("missing") + "]"));
}

}  // namespace
}  // namespace agent::send
