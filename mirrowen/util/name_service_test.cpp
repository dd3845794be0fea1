#include "mirrowen/util/name_service.h"

#include "tests/support/fake_user_names.h"

namespace util {

namespace {

// A number that no account has.
constexpr std::uint32_t kNobodysId = 3987654321U;

TEST(NameServiceTest, TheHostKnowsRootBothWays) {
    EXPECT_EQ(user_names().GetUserName(0), "root");
    EXPECT_EQ(user_names().GetGroupName(0), "root");
    EXPECT_EQ(user_names().FindUser("root"), 0U);
    EXPECT_EQ(user_names().FindGroup("root"), 0U);
}

TEST(NameServiceTest, WhatTheHostDoesNotKnowIsEmpty) {
    EXPECT_EQ(user_names().GetUserName(kNobodysId), "");
    EXPECT_EQ(user_names().GetGroupName(kNobodysId), "");
    EXPECT_EQ(user_names().FindUser("no such account here"), std::nullopt);
    EXPECT_EQ(user_names().FindGroup(""), std::nullopt);
}

TEST(NameServiceTest, AReplacementIsInForceForItsLife) {
    {
        tests::fake_user_names_t names;
        names.users["root"] = 77;
        names.groups["adm"] = 78;
        EXPECT_EQ(user_names().FindUser("root"), 77U);
        EXPECT_EQ(user_names().GetGroupName(78), "adm");
        EXPECT_EQ(user_names().GetUserName(0), "");
    }
    EXPECT_EQ(user_names().FindUser("root"), 0U);
}

TEST(NameServiceTest, ManyThreadsMayAsk) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([] {
            for (int round = 0; round < 20; ++round) {
                EXPECT_EQ(user_names().GetUserName(0), "root");
                EXPECT_EQ(user_names().FindGroup("root"), 0U);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

}  // namespace

}  // namespace util
