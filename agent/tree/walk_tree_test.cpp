#include "agent/tree/walk_tree.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "agent/copy/host_tree.h"
#include "agent/tree/opened_place.h"
#include "mirrowen/posix/errno_exc.h"
#include "tests/support/temp_dir.h"

namespace agent {
namespace {

class recorder_t final : public tree_visitor_t {
  public:
    void OnEntry(const tree_entry_t& entry) override {
        static constexpr const char* letters[] = {"f ", "d ", "l ", "p ", "s ", "v "};
        events.push_back(letters[static_cast<int>(entry.brief.kind)] + entry.name);
    }
    void OnDirectoryLeft(const tree_entry_t& entry) override { events.push_back("/ " + entry.name); }
    void OnUnreadable(const std::string& name, const std::string&) override { events.push_back("! " + name); }

    std::vector<std::string> events;
};

std::vector<std::string> Walk(const std::string& path, const std::string& top = "") {
    const opened_place_t place = OpenPlace(path + "/.");
    copy::host_tree_t tree(place.root);
    recorder_t recorder;
    WalkTree(tree, top, recorder);
    return recorder.events;
}

void Write(const std::string& path, const std::string& text) {
    std::ofstream(path) << text;
}

TEST(WalkTree, DirectoriesAreToldBeforeAndAfterTheirContentsNamesInByteOrder) {
    const tests::temp_dir_t dir;
    std::filesystem::create_directories(dir.path() + "/b/inner");
    Write(dir.path() + "/b/inner/x", "1");
    Write(dir.path() + "/a", "1");
    Write(dir.path() + "/b/z", "1");
    Write(dir.path() + "/b/\xff", "1");
    EXPECT_EQ(Walk(dir.path()), (std::vector<std::string>{"d ", "f a", "d b", "d b/inner", "f b/inner/x", "/ b/inner",
                                                          "f b/z", "f b/\xff", "/ b", "/ "}));
}

TEST(WalkTree, LinksAreToldAndNeverFollowed) {
    const tests::temp_dir_t dir;
    std::filesystem::create_directory(dir.path() + "/real");
    Write(dir.path() + "/real/x", "1");
    std::filesystem::create_directory_symlink("real", dir.path() + "/link");
    std::filesystem::create_symlink("nowhere", dir.path() + "/dangling");
    EXPECT_EQ(Walk(dir.path()),
              (std::vector<std::string>{"d ", "l dangling", "l link", "d real", "f real/x", "/ real", "/ "}));
}

TEST(WalkTree, SpecialFilesAreToldByKind) {
    const tests::temp_dir_t dir;
    ASSERT_EQ(::mkfifo((dir.path() + "/pipe").c_str(), 0600), 0);
    EXPECT_EQ(Walk(dir.path()), (std::vector<std::string>{"d ", "p pipe", "/ "}));
}

TEST(WalkTree, SingleFileIsAWalkOfOne) {
    const tests::temp_dir_t dir;
    Write(dir.path() + "/only", "1");
    EXPECT_EQ(Walk(dir.path(), "only"), (std::vector<std::string>{"f only"}));
}

TEST(WalkTree, MissingTopThrowsAndNamesIt) {
    const tests::temp_dir_t dir;
    EXPECT_THROW(Walk(dir.path(), "missing"), posix::errno_exc_t);
}

TEST(WalkTree, NameTooDeepToBeNamedIsToldAndTheWalkGoesOn) {
    const tests::temp_dir_t dir;
    const std::string part(250, 'd');
    std::string made = dir.path();
    ASSERT_EQ(::chdir(made.c_str()), 0);
    for (int depth = 0; depth < 18; ++depth) {  // 18 * 251 bytes are more than a name may have
        ASSERT_EQ(::mkdir(part.c_str(), 0700), 0);
        ASSERT_EQ(::chdir(part.c_str()), 0);
    }
    ASSERT_EQ(::chdir("/"), 0);
    Write(dir.path() + "/zlast", "1");
    const std::vector<std::string> events = Walk(dir.path());
    EXPECT_EQ(std::count_if(events.begin(), events.end(), [](const auto& event) { return event[0] == '!'; }), 1);
    EXPECT_EQ(events[events.size() - 2], "f zlast");
}

class StopHere final : public std::exception {};

TEST(WalkTree, WhatTheVisitorThrowsEndsTheWalk) {
    class stopper_t final : public tree_visitor_t {
      public:
        void OnEntry(const tree_entry_t&) override { throw StopHere(); }
        void OnDirectoryLeft(const tree_entry_t&) override {}
        void OnUnreadable(const std::string&, const std::string&) override {}
    };
    const tests::temp_dir_t dir;
    const opened_place_t place = OpenPlace(dir.path() + "/.");
    copy::host_tree_t tree(place.root);
    stopper_t stopper;
    EXPECT_THROW(WalkTree(tree, "", stopper), StopHere);
}

}  // namespace
}  // namespace agent
