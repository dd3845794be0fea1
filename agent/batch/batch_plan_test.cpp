#include "agent/batch/batch_plan.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/staging_fixture.h"

namespace agent::batch {
namespace {

using tarn::batch::CBatchAreaDevToken;
using tarn::batch::SFileItemSpec;

const guid::guid_t kCopy({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16});
const std::string kDigits = "0102030405060708090a0b0c0d0e0f10";

std::string NameOf(std::uint64_t number) {
    return kDigits + "/" + std::to_string(number);
}

std::string Refusal(const std::list<SFileItemSpec>& items, std::uint64_t total = 100) {
    return tests::TextOf([&] { PlanBatch(CBatchAreaDevToken(items, total, false, false)); });
}

std::list<SFileItemSpec> Entries(std::size_t count) {
    std::list<SFileItemSpec> items;
    for (std::size_t number = 1; number <= count; ++number) {
        items.push_back({NameOf(number), "p", 0});
    }
    return items;
}

TEST(BatchPlan, TellsWhatTheTokenSays) {
    const batch_plan_t plan =
        PlanBatch(CBatchAreaDevToken({{NameOf(3), "a/b", 5}, {NameOf(7), "a", 0}}, 99, true, false));
    EXPECT_EQ(plan.copy, kCopy);
    EXPECT_EQ(plan.replace, EReplace::eYes);
    EXPECT_FALSE(plan.unsynced);
    EXPECT_EQ(plan.payload, 99U);
    ASSERT_EQ(plan.entries.size(), 2U);
    EXPECT_EQ(plan.entries[0].number, 2U);
    EXPECT_EQ(plan.entries[0].name, NameOf(3));
    EXPECT_EQ(plan.entries[0].path, "a/b");
    EXPECT_EQ(plan.entries[0].size, 5U);
    EXPECT_EQ(plan.entries[1].number, 6U);
}

TEST(BatchPlan, SecondFlagSaysThatNobodyWaitsForTheStorage) {
    const batch_plan_t plan = PlanBatch(CBatchAreaDevToken(Entries(1), 1, false, true));
    EXPECT_EQ(plan.replace, EReplace::eNo);
    EXPECT_TRUE(plan.unsynced);
}

TEST(BatchPlan, CountOutOfRangeIsRefused) {
    EXPECT_EQ(Refusal({}), "A batch of [0] entries is refused: it has 1 to [512].");
    EXPECT_EQ(Refusal(Entries(512)), "");
    EXPECT_EQ(Refusal(Entries(513)), "A batch of [513] entries is refused: it has 1 to [512].");
}

TEST(BatchPlan, PayloadOutOfRangeIsRefused) {
    EXPECT_EQ(Refusal(Entries(1), 0), "A batch with [0] bytes of commands is refused: it has 1 to [16777216].");
    EXPECT_EQ(Refusal(Entries(1), 16777216), "");
    EXPECT_EQ(Refusal(Entries(1), 16777217),
              "A batch with [16777217] bytes of commands is refused: it has 1 to [16777216].");
    EXPECT_EQ(Refusal(Entries(1), ~std::uint64_t{0}),
              "A batch with [18446744073709551615] bytes of commands is refused: it has 1 to [16777216].");
}

TEST(BatchPlan, NameThatIsNoneIsRefused) {
    EXPECT_EQ(Refusal({{"../1", "p", 0}}), "[../1] names no entry of a batch.");
    EXPECT_EQ(Refusal({{NameOf(1), "p", 0}, {kDigits + "/../2", "p", 0}}),
              "[" + kDigits + "/../2] names no entry of a batch.");
}

TEST(BatchPlan, EntryOfAnotherCopyIsRefused) {
    const std::string other = "00000000000000000000000000000000/2";
    EXPECT_EQ(Refusal({{NameOf(1), "p", 0}, {other, "p", 0}}),
              "Entry [" + other + "] is of another copy than the batch.");
}

TEST(BatchPlan, NumberThatComesTwiceOrGoesBackIsRefused) {
    EXPECT_EQ(Refusal({{NameOf(2), "p", 0}, {NameOf(2), "q", 0}}),
              "Entry [" + NameOf(2) + "] is out of order: the numbers of a batch ascend.");
    EXPECT_EQ(Refusal({{NameOf(2), "p", 0}, {NameOf(1), "q", 0}}),
              "Entry [" + NameOf(1) + "] is out of order: the numbers of a batch ascend.");
}

TEST(BatchPlan, NumberBeyondAGroupIsRefused) {
    EXPECT_EQ(Refusal({{NameOf(1024), "p", 0}}), "");
    EXPECT_EQ(Refusal({{NameOf(1025), "p", 0}}),
              "Entry [" + NameOf(1025) + "] is refused: a group has at most [1024] entries.");
}

TEST(BatchPlan, EntryThatIsTooLargeIsRefused) {
    EXPECT_EQ(Refusal({{NameOf(1), "p", 4194304}}), "");
    EXPECT_EQ(Refusal({{NameOf(1), "p", 4194305}}),
              "Entry [" + NameOf(1) + "] with [4194305] bytes is refused: in a batch it has at most [4194304].");
}

}  // namespace
}  // namespace agent::batch
