// UTF-8 to wide characters and back, without loss for bytes that are not UTF-8.
// Well-formed UTF-8: The Unicode Standard, chapter 3.9, table 3-7. The escape of single bytes: Python's PEP 383.
#include "mirrowen/util/str.h"

namespace util {

namespace {

constexpr char32_t kByteEscape = 0xDC00;
constexpr char32_t kReplacement = 0xFFFD;
constexpr char32_t kLastCodePoint = 0x10FFFF;

constexpr bool is_surrogate(char32_t c) noexcept {
    return c >= 0xD800 && c <= 0xDFFF;
}

struct lead_t {
    std::size_t length;  // of the whole sequence; 0: this byte leads none
    char32_t bits;       // the lead byte's share of the code point
    char32_t least;      // smaller results are overlong forms
};

constexpr lead_t lead_of(unsigned char byte) noexcept {
    if (byte < 0x80) {
        return {1, byte, 0};
    }
    if ((byte & 0xE0U) == 0xC0) {
        return {2, byte & 0x1FU, 0x80};
    }
    if ((byte & 0xF0U) == 0xE0) {
        return {3, byte & 0x0FU, 0x800};
    }
    if ((byte & 0xF8U) == 0xF0) {
        return {4, byte & 0x07U, 0x10000};
    }
    return {0, 0, 0};
}

// Length of the well-formed sequence at the start of `text` and its code point; length 0 when there is none.
std::size_t decode(std::string_view text, char32_t& codePoint) noexcept {
    const lead_t lead = lead_of(static_cast<unsigned char>(text.front()));
    if (lead.length == 0 || lead.length > text.size()) {
        return 0;
    }
    codePoint = lead.bits;
    for (std::size_t i = 1; i < lead.length; ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        if ((byte & 0xC0U) != 0x80) {
            return 0;
        }
        codePoint = (codePoint << 6) | (byte & 0x3FU);
    }
    return codePoint < lead.least || is_surrogate(codePoint) || codePoint > kLastCodePoint ? 0 : lead.length;
}

void encode(char32_t c, std::string& out) {
    const auto tail = [&](unsigned shift) { out += static_cast<char>(0x80U | ((c >> shift) & 0x3FU)); };
    if (c < 0x80) {
        out += static_cast<char>(c);
    } else if (c < 0x800) {
        out += static_cast<char>(0xC0U | (c >> 6));
        tail(0);
    } else if (c < 0x10000) {
        out += static_cast<char>(0xE0U | (c >> 12));
        tail(6);
        tail(0);
    } else {
        out += static_cast<char>(0xF0U | (c >> 18));
        tail(12);
        tail(6);
        tail(0);
    }
}

}  // namespace

std::wstring str_utf82w(std::string_view text) {
    std::wstring out;
    out.reserve(text.size());
    while (!text.empty()) {
        char32_t codePoint = 0;
        std::size_t length = decode(text, codePoint);
        if (length == 0) {
            codePoint = kByteEscape + static_cast<unsigned char>(text.front());
            length = 1;
        }
        out += static_cast<wchar_t>(codePoint);
        text.remove_prefix(length);
    }
    return out;
}

std::string str_w2utf8(std::wstring_view text) {
    std::string out;
    out.reserve(text.size());
    for (const wchar_t wide : text) {
        const auto c = static_cast<char32_t>(wide);
        if (c >= kByteEscape + 0x80 && c <= kByteEscape + 0xFF) {
            out += static_cast<char>(c - kByteEscape);
        } else {
            encode(is_surrogate(c) || c > kLastCodePoint ? kReplacement : c, out);
        }
    }
    return out;
}

}  // namespace util
