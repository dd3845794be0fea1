#include "mirrowen/util/str_format.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "mirrowen/util/numeric_cast.h"
#include "tests/support/caught_error.h"

namespace {

using util::str_format;

template <class... Args>
concept CanFormat = requires(const Args&... args) {
    str_format("", args...);
};
static_assert(CanFormat<int, std::string, const char*, std::string_view, std::uint64_t>);
static_assert(!CanFormat<bool> && !CanFormat<char> && !CanFormat<double>);

struct case_t {
    std::string_view format;
    std::initializer_list<std::string_view> args;
    std::string_view text;
};

TEST(StrFormat, Rules) {
    const case_t cases[] = {
        {"", {"x"}, ""},
        {"no placeholder", {"x"}, "no placeholder"},
        {"a [%1] [%2].", {"x", "y"}, "a [x] [y]."},
        {"%1%2;%3", {"a", "b", "c"}, "ab;c"},
        {"%2%1%2", {"a", "b"}, "bab"},
        {"%12", {"a"}, "a2"},
        {"%12", {"1", "2", "3", "4", "5", "6", "7", "8", "9", "10", "11", "twelve"}, "twelve"},
        {"%123", {"1", "2", "3", "4", "5", "6", "7", "8", "9", "10", "11", "twelve"}, "twelve3"},
        {"%0", {"a"}, "%0"},
        {"%01", {"a"}, "%01"},
        {"%2", {"a"}, "%2"},
        {"%99", {"a"}, "%99"},
        {"100%", {"a"}, "100%"},
        {"%%1", {"a"}, "%a"},
        {"%s %d", {"a"}, "%s %d"},
        {"%1", {"a", "surplus"}, "a"},
        {"[%1] [%2]", {"%2", "b"}, "[%2] [b]"},
        {"[%1]", {""}, "[]"},
        {"%1", {}, "%1"},
    };
    for (const case_t& one : cases) {
        EXPECT_EQ(util::str_format_list(one.format, one.args), one.text) << one.format;
    }
}

TEST(StrFormat, ZeroBytesAreText) {
    const std::string_view zero("\0", 1);
    EXPECT_EQ(str_format("[%1]", zero), std::string("[\0]", 3));
}

TEST(StrFormat, MixedArguments) {
    EXPECT_EQ(str_format("%1 %2 %3 %4", -5, UINT64_MAX, std::string("text"), "literal"),
              "-5 18446744073709551615 text literal");
}

TEST(NumericCast, KeepsValuesThatFit) {
    EXPECT_EQ(util::numeric_cast<std::uint32_t>(std::uint64_t{0xFFFFFFFF}), 0xFFFFFFFFU);
    EXPECT_EQ(util::numeric_cast<int>(-1L), -1);
}

TEST(NumericCast, NamesBothTypesWhenTheValueDoesNotFit) {
    EXPECT_THAT(tests::CatchError([] { util::numeric_cast<std::uint32_t>(std::uint64_t{0x100000000}); }),
                tests::Throws("exc::CRuntimeExc", "Unable to cast value from [unsigned long] to [unsigned int]."));
    EXPECT_THAT(tests::CatchError([] { util::numeric_cast<unsigned long>(-1); }),
                tests::ThrowsText("Unable to cast value from [int] to [unsigned long]."));
}

TEST(TypeName, IsTheAbisSpelling) {
    EXPECT_EQ(util::type_name<unsigned long>(), "unsigned long");
    EXPECT_EQ(util::type_name<exc::CRuntimeExc>(), "exc::CRuntimeExc");
}

}  // namespace
