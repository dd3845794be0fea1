#include "agent/copy/group_keeper.h"

#include <gtest/gtest.h>

#include "tests/support/fake_clock.h"

namespace agent::copy {
namespace {

sent_item_t Item(std::uint64_t bytes = 0) {
    sent_item_t item;
    item.bytes = bytes;
    return item;
}

TEST(GroupKeeper, NumbersGoOnWithEveryItemAndBeginAgainWithTheNextGroup) {
    group_keeper_t group;
    EXPECT_EQ(group.NextNumber(), 0u);
    EXPECT_EQ(group.NextNumber(), 0u);
    group.Add(Item());
    group.Add(Item());
    EXPECT_EQ(group.NextNumber(), 2u);
    EXPECT_EQ(group.Take().size(), 2u);
    EXPECT_EQ(group.NextNumber(), 0u);
    EXPECT_TRUE(group.Take().empty());
}

TEST(GroupKeeper, ItemsThatAreTakenBackGiveTheirNumbersAndBytesToTheNext) {
    group_keeper_t group;
    group.Add(Item(1));
    group.Add(Item(group_keeper_t::kMaxBytes - 2));
    group.Add(Item(1));
    EXPECT_TRUE(group.IsDue());
    const std::vector<sent_item_t> taken = group.TakeBack(2);
    ASSERT_EQ(taken.size(), 2u);
    EXPECT_EQ(taken[0].bytes, group_keeper_t::kMaxBytes - 2);
    EXPECT_EQ(taken[1].bytes, 1u);
    EXPECT_EQ(group.NextNumber(), 1u);
    EXPECT_FALSE(group.IsDue());
    group.Add(Item(group_keeper_t::kMaxBytes - 2));
    EXPECT_FALSE(group.IsDue());
    EXPECT_EQ(group.Take().size(), 2u);
}

TEST(GroupKeeper, IsDueWithTheLastItemThatItMayHave) {
    group_keeper_t group;
    for (std::size_t i = 0; i < group_keeper_t::kMaxItems; ++i) {
        EXPECT_FALSE(group.IsDue()) << i;
        group.Add(Item());
    }
    EXPECT_TRUE(group.IsDue());
    group.Take();
    EXPECT_FALSE(group.IsDue());
}

TEST(GroupKeeper, IsDueWithTheBytesThatItMayHave) {
    group_keeper_t group;
    group.Add(Item(group_keeper_t::kMaxBytes - 1));
    EXPECT_FALSE(group.IsDue());
    group.Add(Item(1));
    EXPECT_TRUE(group.IsDue());
    group.Take();
    group.Add(Item(1));
    EXPECT_FALSE(group.IsDue());
}

TEST(GroupKeeper, IsDueWhenItsFirstItemHasWaitedLongEnough) {
    tests::fake_clock_t clock;
    group_keeper_t group;
    clock.Advance(std::chrono::seconds(60));
    EXPECT_FALSE(group.IsDue());
    group.Add(Item());
    clock.Advance(std::chrono::milliseconds(4999));
    group.Add(Item());
    EXPECT_FALSE(group.IsDue());
    clock.Advance(std::chrono::milliseconds(1));
    EXPECT_TRUE(group.IsDue());
}

}  // namespace
}  // namespace agent::copy
