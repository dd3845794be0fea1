#include "mirrowen/xml/xml_document.h"

#include <utility>

#include "mirrowen/xml/xml_text.h"

namespace xml {

xml_holder_t::xml_holder_t(std::shared_ptr<tinyxml2::XMLDocument> document, tinyxml2::XMLElement* element) noexcept
    : document_(std::move(document)), element_(element) {}

std::shared_ptr<tinyxml2::XMLDocument> TiXmlCreateDoc() {
    auto document = std::make_shared<tinyxml2::XMLDocument>();
    document->InsertEndChild(document->NewDeclaration());
    return document;
}

xml_holder_t TiXmlCreateChild(std::shared_ptr<tinyxml2::XMLDocument> document, const char* name) {
    tinyxml2::XMLElement* const element = document->NewElement(name);
    document->InsertEndChild(element);
    return {std::move(document), element};
}

void TiXmlSetStrAttr(const xml_holder_t& holder, const char* name, const std::string& value) {
    holder.Element().SetAttribute(name, EscapeText(value).c_str());
}

void TiXmlSetUInt64Attr(const xml_holder_t& holder, const char* name, std::uint64_t value) {
    holder.Element().SetAttribute(name, value);
}

std::string TiXmlSerialize(const tinyxml2::XMLDocument& document) {
    tinyxml2::XMLPrinter printer(nullptr, true);
    document.Print(&printer);
    return {printer.CStr(), static_cast<std::size_t>(printer.CStrSize() - 1)};
}

}  // namespace xml
