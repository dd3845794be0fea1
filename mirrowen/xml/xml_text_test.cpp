#include "mirrowen/xml/xml_text.h"

#include <gtest/gtest.h>

#include <random>

#include "tests/support/caught_error.h"

namespace xml {
namespace {

using namespace std::string_literals;

TEST(XmlText, OrdinaryTextStays) {
    for (const std::string text : {"", "a b", "<&>\"'", "\xC3\xA4 \xF0\x9F\x98\x80", "\x7F", "\xFF\xFE"}) {
        EXPECT_EQ(EscapeText(text), text);
        EXPECT_EQ(UnescapeText(text), text);
    }
}

TEST(XmlText, CharactersThatXmlCannotCarryBecomeNumbers) {
    EXPECT_EQ(EscapeText("a\nb\tc\r"), "a\\x0Ab\\x09c\\x0D");
    EXPECT_EQ(EscapeText("\0\x1F"s), "\\x00\\x1F");
    EXPECT_EQ(EscapeText("\xEF\xBF\xBE\xEF\xBF\xBF\xEF\xBF\xBD"), "\\xEF\\xBF\\xBE\\xEF\\xBF\\xBF\xEF\xBF\xBD");
    EXPECT_EQ(EscapeText("\\x0A"), "\\\\x0A");
}

TEST(XmlText, EveryByteStringComesBack) {
    const unsigned seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 engine(seed);
    constexpr unsigned char edges[] = {0, 9, 10, 0x1F, 0x20, 'x', '\\', '0', 0xEF, 0xBF, 0xBE, 0xFF};
    for (int run = 0; run < 20000; ++run) {
        std::string bytes(engine() % 9, '\0');
        for (char& byte : bytes) {
            byte = static_cast<char>(edges[engine() % sizeof(edges)]);
        }
        ASSERT_EQ(UnescapeText(EscapeText(bytes)), bytes);
    }
}

TEST(XmlText, OtherBackslashesAreRefused) {
    for (const std::string text : {"\\", "a\\", "\\x", "\\x0", "\\x0g", "\\X0A", "\\n", "\\x-1", "\\\\\\"}) {
        EXPECT_THAT(tests::CatchError([&] { UnescapeText(text); }),
                    tests::Throws("exc::CRuntimeExc", "'" + text + "' is not an escaped text."));
    }
}

}  // namespace
}  // namespace xml
