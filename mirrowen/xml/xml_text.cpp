#include "mirrowen/xml/xml_text.h"

#include <charconv>

#include "mirrowen/exc/runtime_exc.h"

namespace xml {

namespace {

/// How many bytes at the start of `text` have to be written as numbers.
std::size_t CountRefused(std::string_view text) noexcept {
    if (static_cast<unsigned char>(text.front()) < 0x20) {
        return 1;
    }
    return text.starts_with("\xEF\xBF\xBE") || text.starts_with("\xEF\xBF\xBF") ? 3 : 0;
}

void AppendNumber(std::string& out, char c) {
    static constexpr char digits[] = "0123456789ABCDEF";
    const auto byte = static_cast<unsigned char>(c);
    out.append("\\x") += digits[byte >> 4];
    out += digits[byte & 15U];
}

/// Takes one escape from the front of `text`, which begins with a backslash; false when it is none.
bool TakeEscape(std::string_view& text, std::string& out) {
    if (text.starts_with("\\\\")) {
        out += '\\';
        text.remove_prefix(2);
        return true;
    }
    if (text.size() < 4 || text[1] != 'x') {
        return false;
    }
    unsigned value = 0;
    const auto [end, error] = std::from_chars(text.data() + 2, text.data() + 4, value, 16);
    if (error != std::errc() || end != text.data() + 4) {
        return false;
    }
    out += static_cast<char>(value);
    text.remove_prefix(4);
    return true;
}

}  // namespace

std::string EscapeText(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    while (!text.empty()) {
        if (text.front() == '\\') {
            out += '\\';
        }
        const std::size_t refused = CountRefused(text);
        if (refused == 0) {
            out += text.front();
        }
        for (std::size_t i = 0; i < refused; ++i) {
            AppendNumber(out, text[i]);
        }
        text.remove_prefix(refused == 0 ? 1 : refused);
    }
    return out;
}

std::string UnescapeText(std::string_view text) {
    std::string out;
    for (std::string_view rest = text; !rest.empty();) {
        if (rest.front() != '\\') {
            out += rest.front();
            rest.remove_prefix(1);
        } else if (!TakeEscape(rest, out)) {
            throw exc::CRuntimeExc("'%1' is not an escaped text.", text);
        }
    }
    return out;
}

}  // namespace xml
