#include <gtest/gtest.h>

#include <exception>
#include <string>
#include <utility>

#include "tarn/lindir/lin_dir_enum.h"
#include "tarn/lindir/search_mask.h"
#include "tests/support/log_capture.h"

namespace tarn::lindir {
namespace {

std::pair<bool, std::string> Translated(std::string mask) {
    const bool filters = lin_dir_enum::GenerateNewRegexMask(mask);
    return {filters, mask};
}

TEST(SearchMask, MasksThatEveryNamePassesNeedNoExpression) {
    for (const char* const mask : {"", "   ", "*", " * ", "*.*", " *.*"}) {
        EXPECT_FALSE(Translated(mask).first) << mask;
        EXPECT_EQ(search_mask_t::FromWildcards(std::wstring(mask, mask + std::string(mask).size())), nullptr);
    }
    EXPECT_EQ(Translated(" *.* ").second, "*.*");
}

TEST(SearchMask, WildcardsBecomeAnExpressionInPlace) {
    const std::pair<const char*, const char*> cases[] = {
        {"*.txt; *.log", ".*\\.txt|.*\\.log"},
        {"file?.dat", "file.\\.dat"},
        {"  a  ", "a"},
        {"a;b", "a;b"},
        {"a;  b", "a| b"},
        {"a;; b", "a;|b"},
        {"$", "\\$"},
        {"^", "\\^"},
        {"]", "\\]"},
        {"[", "\\["},
        {"[a]", "\\[a\\]"},
        {"}", "\\\\}"},
        {"{", "\\}"},
        {"a{1}", "a\\}1\\\\}"},
        {"a+(b)\\", "a+(b)\\"},
        {"**", ".*.*"},
    };
    for (const auto& [mask, expression] : cases) {
        EXPECT_EQ(Translated(mask), std::make_pair(true, std::string(expression))) << mask;
    }
}

TEST(SearchMask, ExpressionIsLogged) {
    const tests::log_capture_t log;
    Translated("*.txt");
    ASSERT_EQ(log.Lines().size(), 1U);
    EXPECT_EQ(log.Lines().front().section, "fs_log");
    EXPECT_EQ(log.Lines().front().text, "Search mask is .*\\.txt");
    Translated("*");
    EXPECT_EQ(log.Lines().size(), 1U);
}

TEST(SearchMask, NamesMatchAsAWholeWhateverTheirCase) {
    const auto mask = search_mask_t::FromWildcards(L"*.TXT; File?.dat");
    EXPECT_TRUE(mask->Matches("a.txt"));
    EXPECT_TRUE(mask->Matches("file1.dat"));
    EXPECT_FALSE(mask->Matches("a.txt.old"));
    EXPECT_FALSE(mask->Matches("atxt"));
    EXPECT_FALSE(mask->Matches("file12.dat"));
    EXPECT_TRUE(mask->Matches("A.Txt"));
    EXPECT_TRUE(mask->Matches("\xFF.txt"));
}

TEST(SearchMask, BracketsAndDollarsAreThemselves) {
    EXPECT_TRUE(search_mask_t::FromWildcards(L"[a]$^*")->Matches("[a]$^rest"));
    EXPECT_TRUE(search_mask_t::FromWildcards(L"{")->Matches("}"));
}

TEST(SearchMask, ExpressionThatCannotBeCompiledIsAnError) {
    EXPECT_THROW(search_mask_t::FromWildcards(L"(a"), std::exception);
}

}  // namespace
}  // namespace tarn::lindir
