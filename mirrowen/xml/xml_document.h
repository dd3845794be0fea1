#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include <tinyxml2.h>

#include "mirrowen/export.h"

/// Making an XML document: create it, give it an element, set the element's attributes, serialise it. One thread at a
/// time for a document and everything that holds an element of it.
namespace xml {

/// An element, and a share of the document that owns it, so it is valid as long as somebody holds it.
class MIRROWEN_API xml_holder_t {
  public:
    xml_holder_t(std::shared_ptr<tinyxml2::XMLDocument> document, tinyxml2::XMLElement* element) noexcept;

    tinyxml2::XMLElement& Element() const noexcept { return *element_; }

  private:
    std::shared_ptr<tinyxml2::XMLDocument> document_;
    tinyxml2::XMLElement* element_;
};

/// An empty document that begins with the declaration `<?xml version="1.0" encoding="UTF-8"?>`.
MIRROWEN_API std::shared_ptr<tinyxml2::XMLDocument> TiXmlCreateDoc();

/// A new last element at the document's top. `name` must be an XML name.
MIRROWEN_API xml_holder_t TiXmlCreateChild(std::shared_ptr<tinyxml2::XMLDocument> document, const char* name);

/// Sets an attribute; attributes stand in the order in which they were first set. The value is escaped by EscapeText
/// first, so any byte string leaves the document well-formed as far as its bytes are UTF-8.
MIRROWEN_API void TiXmlSetStrAttr(const xml_holder_t& holder, const char* name, const std::string& value);
/// The number in decimal.
MIRROWEN_API void TiXmlSetUInt64Attr(const xml_holder_t& holder, const char* name, std::uint64_t value);

/// The document as UTF-8 text without line breaks or indentation; what stands in attributes is quoted as XML demands.
MIRROWEN_API std::string TiXmlSerialize(const tinyxml2::XMLDocument& document);

}  // namespace xml
