#include "agent/copy/host_tree.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "agent/copy/content_pieces.h"
#include "agent/tree/opened_place.h"
#include "mirrowen/exc/exception.h"
#include "tests/support/temp_dir.h"

namespace agent::copy {
namespace {

namespace fs = std::filesystem;

class HostTree : public ::testing::Test {
  protected:
    HostTree() {
        fs::create_directory(At("sub"));
        Write("sub/file", "0123456789");
        fs::create_symlink("file", At("sub/link"));
        tree_ = std::make_unique<host_tree_t>(OpenPlace(dir_.path() + "/.").root);
    }

    std::string At(const std::string& name) const { return dir_.path() + "/" + name; }
    void Write(const std::string& name, const std::string& text) const { std::ofstream(At(name)) << text; }

    loaded_item_t Load(const std::string& name, load_options_t options = {}) {
        return tree_->Load(*tree_->TryExamine(name), "target", options, warnings_);
    }

    static std::string ReadAll(const loaded_item_t& loaded) {
        std::string all;
        while (const auto area = loaded.source->ReadNext()) {
            for (const content_piece_t& piece : PiecesOf(*area)) {
                all += piece.data == nullptr ? std::string(piece.size, '\0')
                                             : std::string(reinterpret_cast<const char*>(piece.data), piece.size);
            }
        }
        return all;
    }

    tests::temp_dir_t dir_;
    std::unique_ptr<host_tree_t> tree_;
    std::vector<copy_note_t> warnings_;
};

TEST_F(HostTree, DirectoryIsListedWithWhatIsKnownOfItsObjects) {
    const std::vector<tree_entry_t> entries = tree_->List("sub");
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[0].name, "sub/file");
    EXPECT_EQ(entries[0].brief, *Examine(*OpenPlace(dir_.path() + "/.").root, "sub/file"));
    EXPECT_EQ(entries[1].name, "sub/link");
    EXPECT_EQ(entries[1].brief.target, "file");
    EXPECT_EQ(tree_->List("").size(), 1u);
}

TEST_F(HostTree, NothingIsFoundBehindALink) {
    fs::create_directory_symlink("sub", At("way"));
    EXPECT_FALSE(tree_->TryExamine("way/file"));
    EXPECT_FALSE(tree_->TryExamine("sub/missing"));
    EXPECT_EQ(tree_->TryExamine("way")->brief.kind, EEntryKind::eLink);
    EXPECT_THROW(tree_->List("way"), exc::CException);
}

TEST_F(HostTree, FileIsLoadedFromTheAskedOffsetOn) {
    const loaded_item_t whole = Load("sub/file");
    EXPECT_EQ(whole.item.path, "target");
    EXPECT_EQ(whole.size, 10u);
    EXPECT_EQ(ReadAll(whole), "0123456789");
    const loaded_item_t rest = Load("sub/file", {4096, 7});
    EXPECT_EQ(rest.item.startOffset, 7u);
    EXPECT_EQ(rest.size, 10u);
    EXPECT_EQ(ReadAll(rest), "789");
}

TEST_F(HostTree, FileThatIsWrittenToWhileItIsReadTellsSo) {
    const loaded_item_t left = Load("sub/file");
    ReadAll(left);
    EXPECT_FALSE(left.hasChanged());
    const loaded_item_t changed = Load("sub/file");
    ASSERT_EQ(::chmod(At("sub/file").c_str(), 0600), 0);
    const timespec times[2] = {{1, 0}, {1, 0}};
    ASSERT_EQ(::utimensat(AT_FDCWD, At("sub/file").c_str(), times, 0), 0);
    ReadAll(changed);
    EXPECT_TRUE(changed.hasChanged());
}

TEST_F(HostTree, WhatIsSwappedAfterItWasExaminedIsNotFollowed) {
    const tree_entry_t file = *tree_->TryExamine("sub/file");
    Write("secret", "secret");
    fs::remove(At("sub/file"));
    fs::create_symlink("../secret", At("sub/file"));
    EXPECT_THROW(tree_->Load(file, "target", {}, warnings_), exc::CException);
    const tree_entry_t link = *tree_->TryExamine("sub/link");
    fs::rename(At("sub"), At("moved"));
    fs::create_directory_symlink("moved", At("sub"));
    EXPECT_THROW(tree_->Load(link, "target", {}, warnings_), exc::CException);
}

}  // namespace
}  // namespace agent::copy
