#pragma once

#include <string>
#include <string_view>

#include "mirrowen/export.h"

namespace xml {

/// `text` without the characters that an XML 1.0 attribute cannot carry and give back: the control characters below
/// U+0020 (a tab or line break would be read as a blank), U+FFFE and U+FFFF. Each byte of them becomes a backslash, "x"
/// and two upper-case hexadecimal digits, and a backslash is doubled, so UnescapeText gives back what was there.
/// Source: XML 1.0 (fifth edition), sections 2.2 and 3.3.3.
MIRROWEN_API std::string EscapeText(std::string_view text);

/// What EscapeText was given. Throws `exc::CRuntimeExc` "'%1' is not an escaped text." for a backslash that begins
/// neither form.
MIRROWEN_API std::string UnescapeText(std::string_view text);

}  // namespace xml
