#include "agent/copy/unchanged.h"

#include <gtest/gtest.h>

#include <functional>

namespace agent::copy {
namespace {

object_brief_t File() {
    object_brief_t brief;
    brief.mode = 0640;
    brief.size = 10;
    brief.modificationTime = {-5, 123456789};
    brief.owner = {"ann", 1000};
    brief.group = {"staff", 50};
    brief.inode = 1;
    return brief;
}

object_brief_t With(const std::function<void(object_brief_t&)>& change) {
    object_brief_t brief = File();
    change(brief);
    return brief;
}

object_brief_t Link(const std::string& target) {
    object_brief_t brief = File();
    brief.kind = EEntryKind::eLink;
    brief.target = target;
    return brief;
}

TEST(Unchanged, InodesMakeNoDifference) {
    EXPECT_TRUE(IsUnchanged(File(), With([](auto& b) { b.inode = 2, b.device = 3, b.links = 4; }), {}));
}

TEST(Unchanged, EachOfTheComparedThingsMatters) {
    EXPECT_FALSE(IsUnchanged(File(), With([](auto& b) { b.kind = EEntryKind::eDirectory; }), {}));
    EXPECT_FALSE(IsUnchanged(File(), With([](auto& b) { b.size = 11; }), {}));
    EXPECT_FALSE(IsUnchanged(File(), With([](auto& b) { b.mode = 0644; }), {}));
    EXPECT_FALSE(IsUnchanged(File(), With([](auto& b) { b.modificationTime.nanoseconds = 123456788; }), {}));
    EXPECT_FALSE(IsUnchanged(File(), With([](auto& b) { b.modificationTime.seconds = 5; }), {}));
    EXPECT_FALSE(IsUnchanged(File(), With([](auto& b) { b.owner.name = "bob"; }), {}));
    EXPECT_FALSE(IsUnchanged(File(), With([](auto& b) { b.group.name = "users"; }), {}));
}

TEST(Unchanged, LinksGoByTheirContentAndHaveNoMode) {
    EXPECT_TRUE(IsUnchanged(Link("a"), Link("a"), {}));
    EXPECT_FALSE(IsUnchanged(Link("a"), Link("b"), {}));
    object_brief_t other = Link("a");
    other.mode = 0777;
    EXPECT_TRUE(IsUnchanged(Link("a"), other, {}));
}

TEST(Unchanged, DirectoriesHaveNoSizeToCompare) {
    object_brief_t ours = File();
    ours.kind = EEntryKind::eDirectory;
    object_brief_t theirs = ours;
    theirs.size = 4096;
    EXPECT_TRUE(IsUnchanged(ours, theirs, {}));
    theirs.mode = 0700;
    EXPECT_FALSE(IsUnchanged(ours, theirs, {}));
}

TEST(Unchanged, OwnersGoByNameElseByNumber) {
    EXPECT_TRUE(IsUnchanged(File(), With([](auto& b) { b.owner.id = 2000; }), {}));
    EXPECT_TRUE(IsUnchanged(File(), With([](auto& b) { b.owner.name = ""; }), {}));
    EXPECT_FALSE(IsUnchanged(File(), With([](auto& b) { b.owner = {"", 2000}; }), {}));
    EXPECT_FALSE(IsUnchanged(With([](auto& b) { b.owner = {"", 2000}; }), File(), {}));
}

TEST(Unchanged, OwnersGoByNumberOnRequestAndNotAtAllWhereTheyCannotBeSet) {
    sameness_t numeric;
    numeric.numericOwner = true;
    EXPECT_FALSE(IsUnchanged(File(), With([](auto& b) { b.owner.id = 2000; }), numeric));
    EXPECT_TRUE(IsUnchanged(File(), With([](auto& b) { b.owner.name = "bob"; }), numeric));
    sameness_t none;
    none.owners = false;
    EXPECT_TRUE(IsUnchanged(File(), With([](auto& b) { b.owner = b.group = {"bob", 2}; }), none));
}

TEST(Unchanged, TimesOfFilesCanBeLeftOutThoseOfOthersStay) {
    sameness_t rules;
    rules.fileTimes = false;
    EXPECT_TRUE(IsUnchanged(File(), With([](auto& b) { b.modificationTime = {}; }), rules));
    object_brief_t link = Link("a");
    link.modificationTime = {};
    EXPECT_FALSE(IsUnchanged(Link("a"), link, rules));
}

}  // namespace
}  // namespace agent::copy
