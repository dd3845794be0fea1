#include "mirrowen/guid/guid.h"

#include <span>

#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/util/random.h"

namespace guid {

namespace {

constexpr std::size_t kBareLength = 36;

/// Whether a '-' stands before the byte of this number.
constexpr bool IsDashBefore(std::size_t byte) noexcept {
    return byte == 4 || byte == 6 || byte == 8 || byte == 10;
}

/// The value of a hexadecimal digit, or 16.
constexpr std::uint8_t DigitValue(char c) noexcept {
    if (c >= '0' && c <= '9') {
        return static_cast<std::uint8_t>(c - '0');
    }
    const char lower = static_cast<char>(c | 0x20);
    return lower >= 'a' && lower <= 'f' ? static_cast<std::uint8_t>(lower - 'a' + 10) : 16;
}

bool TryParse(std::string_view text, guid_t::bytes_t& bytes) noexcept {
    if (text.size() == kBareLength + 2 && text.front() == '{' && text.back() == '}') {
        text = text.substr(1, kBareLength);
    }
    if (text.size() != kBareLength) {
        return false;
    }
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        if (IsDashBefore(i)) {
            if (text.front() != '-') {
                return false;
            }
            text.remove_prefix(1);
        }
        const std::uint8_t high = DigitValue(text[0]);
        const std::uint8_t low = DigitValue(text[1]);
        if (high > 15 || low > 15) {
            return false;
        }
        bytes[i] = static_cast<std::uint8_t>(high << 4 | low);
        text.remove_prefix(2);
    }
    return true;
}

}  // namespace

guid_t guid_t::FromAStr(std::string_view text) {
    bytes_t bytes = {};
    if (!TryParse(text, bytes)) {
        throw exc::CRuntimeExc("'%1' is not a GUID.", text);
    }
    return guid_t(bytes);
}

guid_t guid_t::Create() {
    bytes_t bytes = {};
    util::random().Fill(std::as_writable_bytes(std::span(bytes)));
    // RFC 4122, section 4.4: version 4 and the variant.
    bytes[6] = static_cast<std::uint8_t>((bytes[6] & 0x0FU) | 0x40U);
    bytes[8] = static_cast<std::uint8_t>((bytes[8] & 0x3FU) | 0x80U);
    return guid_t(bytes);
}

std::string guid_t::ToAStr() const {
    static constexpr char hex[] = "0123456789abcdef";
    std::string text = "{";
    for (std::size_t i = 0; i < bytes_.size(); ++i) {
        if (IsDashBefore(i)) {
            text += '-';
        }
        text += hex[bytes_[i] >> 4];
        text += hex[bytes_[i] & 0x0FU];
    }
    return text += '}';
}

}  // namespace guid
