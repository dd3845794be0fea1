#include "mirrowen/util/remembering_user_names.h"

#include <gtest/gtest.h>

#include <vector>

#include "tests/support/fake_clock.h"

namespace util {
namespace {

/// Answers with its accounts and counts the questions.
class counting_names_t final : public IUserNames {
  public:
    std::string GetUserName(std::uint32_t id) override { return ++asked, id == 1 ? "ann" : ""; }
    std::string GetGroupName(std::uint32_t id) override { return ++asked, id == 1 ? "staff" : ""; }
    std::optional<std::uint32_t> FindUser(const std::string& name) override { return ++asked, Find(name == "ann"); }
    std::optional<std::uint32_t> FindGroup(const std::string& name) override { return ++asked, Find(name == "staff"); }

    int asked = 0;

  private:
    static std::optional<std::uint32_t> Find(bool known) {
        return known ? std::optional<std::uint32_t>(1) : std::nullopt;
    }
};

class RememberingUserNames : public testing::Test {
  protected:
    void ExpectAnswers() {
        EXPECT_EQ(names_.GetUserName(1), "ann");
        EXPECT_EQ(names_.GetUserName(2), "");
        EXPECT_EQ(names_.GetGroupName(1), "staff");
        EXPECT_EQ(names_.GetGroupName(2), "");
        EXPECT_EQ(names_.FindUser("ann"), 1U);
        EXPECT_EQ(names_.FindUser("staff"), std::nullopt);
        EXPECT_EQ(names_.FindGroup("staff"), 1U);
        EXPECT_EQ(names_.FindGroup("ann"), std::nullopt);
    }

    tests::fake_clock_t clock_;
    counting_names_t source_;
    remembering_user_names_t names_{source_, std::chrono::seconds(60)};
};

TEST_F(RememberingUserNames, EachQuestionIsAskedOnceUnknownOnesToo) {
    ExpectAnswers();
    ExpectAnswers();
    EXPECT_EQ(source_.asked, 8);
}

TEST_F(RememberingUserNames, AnswersAreAskedForAgainWhenTheirTimeIsOver) {
    ExpectAnswers();
    clock_.Advance(std::chrono::seconds(59));
    ExpectAnswers();
    EXPECT_EQ(source_.asked, 8);
    clock_.Advance(std::chrono::seconds(1));
    ExpectAnswers();
    EXPECT_EQ(source_.asked, 16);
}

TEST_F(RememberingUserNames, ManyOwnersDoNotFillTheMemory) {
    const auto count = static_cast<std::uint32_t>(remembering_user_names_t::kMaxKept);
    for (std::uint32_t id = 1; id <= count; ++id) {
        names_.GetUserName(id);
    }
    names_.GetUserName(1);
    EXPECT_EQ(source_.asked, static_cast<int>(count));
    names_.GetUserName(count + 1);
    names_.GetUserName(1);
    EXPECT_EQ(source_.asked, static_cast<int>(count) + 2);
}

}  // namespace
}  // namespace util
