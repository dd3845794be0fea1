#include "agent/meta/item_warnings.h"

#include <gtest/gtest.h>

#include <thread>

#include "tests/support/log_capture.h"

namespace agent {
namespace {

item_warning_t Warning(const std::string& path) {
    return {util::EMetaProblem::eNoPrivilege, path, "text of " + path};
}

TEST(ItemWarnings, ThoseOfAScopeAreGatheredInOrder) {
    const auto warnings = std::make_shared<item_warnings_t>();
    const warning_scope_t scope(warnings);
    Report(warning_scope_t::Current(), Warning("a"));
    Report(warning_scope_t::Current(), Warning("b"));
    EXPECT_EQ(warnings->Get(), (std::vector{Warning("a"), Warning("b")}));
    EXPECT_EQ(warnings->Count(), 2U);
}

TEST(ItemWarnings, TheInnermostScopeReceivesAndTheOuterComesBack) {
    const auto outer = std::make_shared<item_warnings_t>();
    const auto inner = std::make_shared<item_warnings_t>();
    const warning_scope_t outerScope(outer);
    {
        const warning_scope_t innerScope(inner);
        EXPECT_EQ(warning_scope_t::Current(), inner);
    }
    EXPECT_EQ(warning_scope_t::Current(), outer);
}

TEST(ItemWarnings, AScopeBelongsToItsThread) {
    const warning_scope_t scope(std::make_shared<item_warnings_t>());
    std::shared_ptr<item_warnings_t> elsewhere = warning_scope_t::Current();
    std::thread([&] { elsewhere = warning_scope_t::Current(); }).join();
    EXPECT_EQ(elsewhere, nullptr);
}

TEST(ItemWarnings, WithoutAScopeTheyGoToTheLog) {
    tests::log_capture_t log;
    Report(warning_scope_t::Current(), Warning("a"));
    ASSERT_EQ(log.Lines().size(), 1U);
    EXPECT_EQ(log.Lines().front().level, logging::ELevel::eWarn);
    EXPECT_EQ(log.Lines().front().section, "agent");
    EXPECT_EQ(log.Lines().front().text, "text of a");
}

TEST(ItemWarnings, OnlySoManyAreKeptButAllAreCounted) {
    item_warnings_t warnings;
    for (std::size_t number = 0; number < item_warnings_t::kMaxKept + 10; ++number) {
        warnings.Add(Warning(std::to_string(number)));
    }
    EXPECT_EQ(warnings.Get().size(), item_warnings_t::kMaxKept);
    EXPECT_EQ(warnings.Get().back(), Warning(std::to_string(item_warnings_t::kMaxKept - 1)));
    EXPECT_EQ(warnings.Count(), item_warnings_t::kMaxKept + 10);
}

}  // namespace
}  // namespace agent
