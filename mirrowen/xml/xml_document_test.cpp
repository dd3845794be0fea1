#include "mirrowen/xml/xml_document.h"

#include <gtest/gtest.h>

#include <cstdint>

#include "mirrowen/xml/xml_text.h"

namespace xml {
namespace {

const std::string kDeclaration = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>";

TEST(XmlDocument, ADocumentIsItsDeclarationAndItsElements) {
    const auto document = TiXmlCreateDoc();
    EXPECT_EQ(TiXmlSerialize(*document), kDeclaration);
    TiXmlCreateChild(document, "lists");
    EXPECT_EQ(TiXmlSerialize(*document), kDeclaration + "<lists/>");
}

TEST(XmlDocument, AttributesStandInTheOrderInWhichTheyWereSet) {
    const auto document = TiXmlCreateDoc();
    const xml_holder_t element = TiXmlCreateChild(document, "e");
    TiXmlSetStrAttr(element, "b", "text");
    TiXmlSetUInt64Attr(element, "a", UINT64_MAX);
    TiXmlSetStrAttr(element, "b", "later");
    EXPECT_EQ(TiXmlSerialize(*document), kDeclaration + R"(<e b="later" a="18446744073709551615"/>)");
}

TEST(XmlDocument, AnElementKeepsItsDocument) {
    const xml_holder_t element = TiXmlCreateChild(TiXmlCreateDoc(), "e");
    TiXmlSetStrAttr(element, "a", "b");
    EXPECT_STREQ(element.Element().Attribute("a"), "b");
}

TEST(XmlDocument, EveryValueComesBackThroughAParser) {
    using namespace std::string_literals;
    for (const std::string& value : {"<a & \"b\" 'c'>"s, "tab\there\nand\0nul"s, "\xC3\xA4\xF0\x9F\x98\x80"s,
                                     "back\\slash"s, "\xEF\xBF\xBE"s, "  blanks  "s, ""s, "&#10;"s}) {
        const auto document = TiXmlCreateDoc();
        TiXmlSetStrAttr(TiXmlCreateChild(document, "e"), "a", value);
        tinyxml2::XMLDocument back;
        ASSERT_EQ(back.Parse(TiXmlSerialize(*document).c_str()), tinyxml2::XML_SUCCESS) << value;
        EXPECT_EQ(UnescapeText(back.FirstChildElement("e")->Attribute("a")), value);
    }
}

}  // namespace
}  // namespace xml
