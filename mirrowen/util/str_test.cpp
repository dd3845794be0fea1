#include "mirrowen/util/str.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <map>
#include <random>

#include "tests/support/caught_error.h"

namespace {

using testing::ElementsAre;

TEST(Str, Numbers) {
    EXPECT_EQ(util::str_from_streamsize(UINT64_MAX), "18446744073709551615");
    EXPECT_EQ(util::str_from_size_t(0), "0");
    EXPECT_EQ(util::str_from_bool(true), "true");
    EXPECT_EQ(util::str_from_bool(false), "false");
}

TEST(StrFromDouble, HasExactlyTheDecimalsAskedFor) {
    EXPECT_EQ(util::str_from_double(0, 3), "0.000");
    EXPECT_EQ(util::str_from_double(12, 3), "12.000");
    EXPECT_EQ(util::str_from_double(2.0006, 3), "2.001");
    EXPECT_EQ(util::str_from_double(-1.25, 1), "-1.2");
    EXPECT_EQ(util::str_from_double(1.5, 0), "2");
    EXPECT_EQ(util::str_from_double(0.1, 20), "0.10000000000000000555");
}

TEST(StrFromDouble, TakesAnyValue) {
    using limits_t = std::numeric_limits<double>;
    EXPECT_EQ(util::str_from_double(limits_t::lowest(), 3).size(), 1U + 309U + 4U);
    EXPECT_EQ(util::str_from_double(limits_t::denorm_min(), 3), "0.000");
    EXPECT_EQ(util::str_from_double(limits_t::infinity(), 3), "inf");
    EXPECT_EQ(util::str_from_double(limits_t::quiet_NaN(), 3), "nan");
}

TEST(StrFromBin, GivesTwoDigitsForEachByte) {
    EXPECT_EQ(util::str_from_bin("\x00\x0f\xf0\xab\xff", 5), "000ff0abff");
    EXPECT_EQ(util::str_from_bin(nullptr, 0), "");
}

TEST(StrFsize, GivesBytesAndABinaryUnit) {
    const std::pair<std::uint64_t, const char*> cases[] = {
        {0, "0"},
        {512, "512"},
        {1023, "1023"},
        {1024, "1024 (1.00 KiB)"},
        {1536, "1536 (1.50 KiB)"},
        {1034, "1034 (1.01 KiB)"},
        {1048575, "1048575 (1.00 MiB)"},
        {1048576, "1048576 (1.00 MiB)"},
        {std::uint64_t{5} << 30, "5368709120 (5.00 GiB)"},
        {std::uint64_t{1} << 40, "1099511627776 (1.00 TiB)"},
        {std::uint64_t{1} << 50, "1125899906842624 (1.00 PiB)"},
        {UINT64_MAX, "18446744073709551615 (16.00 EiB)"},
    };
    for (const auto& [size, text] : cases) {
        EXPECT_EQ(util::str_fsize(size), text);
    }
}

TEST(StrToStreamsize, ReadsDecimalNumbers) {
    EXPECT_EQ(util::str_to_streamsize("0"), 0U);
    EXPECT_EQ(util::str_to_streamsize("007"), 7U);
    EXPECT_EQ(util::str_to_streamsize("18446744073709551615"), UINT64_MAX);
}

TEST(StrToStreamsize, RefusesEverythingElse) {
    for (const char* const text : {"", " ", " 1", "1 ", "+1", "-1", "1x", "0x10", "1.0", "18446744073709551616"}) {
        EXPECT_THAT(tests::CatchError([&] { util::str_to_streamsize(text); }),
                    tests::Throws("exc::CRuntimeExc", "Unable to convert [" + std::string(text) + "] to a number."));
    }
}

TEST(StrIsStartsWith, IsExactAndCaseSensitive) {
    EXPECT_TRUE(util::str_is_starts_with("s3:/x", "s3:"));
    EXPECT_TRUE(util::str_is_starts_with("x", ""));
    EXPECT_FALSE(util::str_is_starts_with("S3:/x", "s3:"));
    EXPECT_FALSE(util::str_is_starts_with("s3", "s3:"));
}

TEST(StrCaseicmp, IsTrueForStringsEqualButForAsciiCase) {
    EXPECT_TRUE(util::str_caseicmp("CloudFS", "cloudfs"));
    EXPECT_TRUE(util::str_caseicmp("", ""));
    EXPECT_FALSE(util::str_caseicmp("a", "ab"));
    EXPECT_FALSE(util::str_caseicmp("[", "{")) << "only letters are folded";
    EXPECT_FALSE(util::str_caseicmp("\xc3\x84", "\xc3\xa4"));
}

TEST(StrCaseInsensitiveLess, FindsKeysInAnyCase) {
    std::map<std::string, int, util::str_case_insensitive_less_operator> map = {{"Blob", 1}, {"file", 2}};
    EXPECT_EQ(map.at("bLOB"), 1);
    EXPECT_EQ(map.at("FILE"), 2);
    EXPECT_EQ(map.count("fil"), 0U);
    const util::str_case_insensitive_less_operator less;
    EXPECT_TRUE(less("Z", "\x80")) << "bytes are compared without a sign";
    EXPECT_FALSE(less("a", "A") || less("A", "a"));
}

TEST(StrTokenize, KeepsEmptyPieces) {
    EXPECT_THAT(util::str_tokenize("x||5", "|"), ElementsAre("x", "", "5"));
    EXPECT_THAT(util::str_tokenize("|", "|"), ElementsAre("", ""));
    EXPECT_THAT(util::str_tokenize("", "|"), ElementsAre(""));
    EXPECT_THAT(util::str_tokenize("a--b-c", "--"), ElementsAre("a", "b-c"));
    EXPECT_THAT(util::str_tokenize("abc", ""), ElementsAre("abc"));
}

TEST(Utf8, WellFormedTextIsDecoded) {
    EXPECT_EQ(util::str_utf82w("a\u00e9\u20ac\U0001F600"), L"a\u00e9\u20ac\U0001F600");
    EXPECT_EQ(util::str_w2utf8(L"a\u00e9\u20ac\U0001F600"), "a\u00e9\u20ac\U0001F600");
    EXPECT_EQ(util::str_utf82w(std::string_view("a\0b", 3)), std::wstring(L"a\0b", 3));
}

TEST(Utf8, OtherBytesBecomeEscapes) {
    const auto escapes = [](std::string_view bytes) {
        std::wstring wide;
        for (const char byte : bytes) {
            wide += static_cast<wchar_t>(0xDC00 + static_cast<unsigned char>(byte));
        }
        return wide;
    };
    const std::string_view cases[] = {
        "\xff",              // in no sequence
        "\x80",              // a tail alone
        "\xc0\xaf",          // overlong, two bytes
        "\xe0\x80\xaf",      // overlong, three
        "\xf0\x80\x80\xaf",  // overlong, four
        "\xed\xa0\x80",      // a surrogate
        "\xed\xb2\x80",      // the surrogate that is itself an escape
        "\xf4\x90\x80\x80",  // beyond the last code point
        "\xe2\x82",          // truncated
        "\xf8\x88\x80\x80\x80",
    };
    for (const std::string_view bytes : cases) {
        EXPECT_EQ(util::str_utf82w(bytes), escapes(bytes));
        EXPECT_EQ(util::str_w2utf8(util::str_utf82w(bytes)), bytes);
    }
    EXPECT_EQ(util::str_utf82w("\xe2\x82z"), L"\xDCE2\xDC82z") << "the byte after a broken sequence is kept";
}

TEST(Utf8, WideValuesThatAreNoCharactersAreReplaced) {
    EXPECT_EQ(util::str_w2utf8(std::wstring(1, static_cast<wchar_t>(0xD800))), "\uFFFD");
    EXPECT_EQ(util::str_w2utf8(std::wstring(1, static_cast<wchar_t>(0xDC7F))), "\uFFFD");
    EXPECT_EQ(util::str_w2utf8(std::wstring(1, static_cast<wchar_t>(0x110000))), "\uFFFD");
}

TEST(Utf8, EveryByteStringSurvivesTheRoundTrip) {
    const unsigned seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 engine(seed);
    // Bytes at the edges of the ranges, so that nearly well-formed sequences are common.
    constexpr unsigned char edges[] = {0x00, 0x41, 0x7f, 0x80, 0x8f, 0x90, 0x9f, 0xa0, 0xbf, 0xc0, 0xc1, 0xc2,
                                       0xdf, 0xe0, 0xe2, 0xed, 0xef, 0xf0, 0xf3, 0xf4, 0xf5, 0xf8, 0xfe, 0xff};
    for (int run = 0; run < 20000; ++run) {
        std::string bytes(engine() % 9, '\0');
        for (char& byte : bytes) {
            byte = static_cast<char>(engine() % 4 == 0 ? engine() & 0xFFU : edges[engine() % sizeof(edges)]);
        }
        ASSERT_EQ(util::str_w2utf8(util::str_utf82w(bytes)), bytes);
    }
}

TEST(StrSplitToVector, KeepsEmptyPiecesOfAnythingButAnEmptyText) {
    EXPECT_THAT(util::str_split_to_vector("", ","), ElementsAre());
    EXPECT_THAT(util::str_split_to_vector("a", ","), ElementsAre("a"));
    EXPECT_THAT(util::str_split_to_vector(",a,,b,", ","), ElementsAre("", "a", "", "b", ""));
}

TEST(StrTrim, DropsTheCharactersAtBothEnds) {
    EXPECT_EQ(util::str_trim("  a b ", " "), "a b");
    EXPECT_EQ(util::str_trim("\ta", " "), "\ta");
    EXPECT_EQ(util::str_trim("   ", " "), "");
    EXPECT_EQ(util::str_trim("", " "), "");
}

TEST(StrTrim, OneTextAtOneEndIsDroppedOnce) {
    EXPECT_EQ(util::str_trim_start("{{a", "{"), "{a");
    EXPECT_EQ(util::str_trim_end("a}}", "}"), "a}");
    EXPECT_EQ(util::str_trim_start("a{", "{"), "a{");
    EXPECT_EQ(util::str_trim_end("", "}"), "");
}

TEST(StrReplace, ReplacesEveryOccurrenceOnce) {
    EXPECT_EQ(util::str_replace("a.b.", ".", "\\."), "a\\.b\\.");
    EXPECT_EQ(util::str_replace("aaa", "aa", "a"), "aa");
    EXPECT_EQ(util::str_replace("abc", "", "x"), "abc");
    EXPECT_EQ(util::str_replace("", "a", "b"), "");
}

TEST(Tolower, MapsEachCharacterWhateverTheLocale) {
    EXPECT_EQ(util::tolower(L"ABC xyz 1\u00c4\u0416"), L"abc xyz 1\u00e4\u0436");
    EXPECT_EQ(util::tolower(L"\xDCFF\u00df"), L"\xDCFF\u00df");
    EXPECT_EQ(util::tolower(L""), L"");
}

}  // namespace
