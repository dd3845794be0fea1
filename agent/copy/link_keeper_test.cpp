#include "agent/copy/link_keeper.h"

#include <gtest/gtest.h>

namespace agent::copy {
namespace {

object_brief_t File(std::uint64_t inode, std::uint64_t links) {
    object_brief_t brief;
    brief.device = 1;
    brief.inode = inode;
    brief.links = links;
    return brief;
}

TEST(LinkKeeper, LaterNamesAreToldWhereTheFirstWent) {
    link_keeper_t keeper;
    EXPECT_FALSE(keeper.See(File(7, 3)));
    keeper.Keep(File(7, 3), {"a", std::nullopt});
    EXPECT_FALSE(keeper.See(File(8, 2)));
    EXPECT_EQ(keeper.See(File(7, 3))->target, "a");
    EXPECT_EQ(keeper.See(File(7, 3))->target, "a");
}

TEST(LinkKeeper, SameInodeOnAnotherDeviceIsAnotherFile) {
    link_keeper_t keeper;
    keeper.See(File(7, 2));
    keeper.Keep(File(7, 2), {"a", std::nullopt});
    object_brief_t other = File(7, 2);
    other.device = 2;
    EXPECT_FALSE(keeper.See(other));
}

TEST(LinkKeeper, FileIsForgottenWithItsLastName) {
    link_keeper_t keeper;
    keeper.See(File(7, 2));
    keeper.Keep(File(7, 2), {"a", std::nullopt});
    EXPECT_EQ(keeper.Size(), 1u);
    keeper.See(File(7, 2));
    EXPECT_EQ(keeper.Size(), 0u);
    keeper.Keep(File(7, 2), {"b", std::nullopt});
    EXPECT_EQ(keeper.Size(), 0u);
}

TEST(LinkKeeper, FirstThatDidNotArriveGivesItsPlaceToTheNext) {
    link_keeper_t keeper;
    keeper.See(File(7, 4));
    keeper.Keep(File(7, 4), {"a", std::nullopt});
    keeper.Drop(File(7, 4), "another");
    EXPECT_TRUE(keeper.See(File(7, 4)));
    keeper.Drop(File(7, 4), "a");
    EXPECT_FALSE(keeper.See(File(7, 4)));
}

TEST(LinkKeeper, OnlyFilesWithSeveralNamesConcernIt) {
    EXPECT_TRUE(link_keeper_t::HasOthers(File(1, 2)));
    EXPECT_FALSE(link_keeper_t::HasOthers(File(1, 1)));
    object_brief_t directory = File(1, 5);
    directory.kind = EEntryKind::eDirectory;
    EXPECT_FALSE(link_keeper_t::HasOthers(directory));
}

}  // namespace
}  // namespace agent::copy
