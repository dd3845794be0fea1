#include "mirrowen/util/str.h"

#include <locale.h>
#include <wctype.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <span>

#include "mirrowen/exc/runtime_exc.h"

namespace util {

namespace {

constexpr unsigned char fold(char c) noexcept {
    const auto byte = static_cast<unsigned char>(c);
    return byte >= 'A' && byte <= 'Z' ? static_cast<unsigned char>(byte - 'A' + 'a') : byte;
}

std::string two_decimals(long long hundredths) {
    const long long rest = hundredths % 100;
    return std::to_string(hundredths / 100) + (rest < 10 ? ".0" : ".") + std::to_string(rest);
}

// Lower-casing must not depend on the locale of the process that loads us.
locale_t case_locale() {
    static const locale_t instance = newlocale(LC_CTYPE_MASK, "C.UTF-8", locale_t{});
    return instance;
}

}  // namespace

std::string str_from_streamsize(std::uint64_t size) {
    return std::to_string(size);
}

std::string str_from_size_t(std::size_t size) {
    return std::to_string(size);
}

std::string str_from_bool(bool value) {
    return value ? "true" : "false";
}

std::string str_from_double(double value, unsigned decimals) {
    // The longest value has 309 digits before the point, and a sign.
    std::string text(std::size_t{312} + decimals, '\0');
    const auto [end, error] = std::to_chars(text.data(), text.data() + text.size(), value, std::chars_format::fixed,
                                            static_cast<int>(decimals));
    text.resize(error == std::errc() ? static_cast<std::size_t>(end - text.data()) : 0);
    return text;
}

std::string str_from_bin(const void* data, std::size_t size) {
    static constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    text.reserve(2 * size);
    for (const auto byte : std::span(static_cast<const unsigned char*>(data), size)) {
        text.append({digits[byte >> 4U], digits[byte & 0xFU]});
    }
    return text;
}

std::string str_fsize(std::uint64_t size) {
    static constexpr std::array<const char*, 6> units = {" KiB)", " MiB)", " GiB)", " TiB)", " PiB)", " EiB)"};
    std::string text = std::to_string(size);
    if (size < 1024) {
        return text;
    }
    double scaled = static_cast<double>(size) / 1024;
    std::size_t unit = 0;
    // Half a hundredth below 1024 would be printed as "1024.00".
    while (scaled >= 1023.995 && unit + 1 < units.size()) {
        scaled /= 1024;
        ++unit;
    }
    return text.append(" (").append(two_decimals(std::llround(scaled * 100))).append(units[unit]);
}

std::uint64_t str_to_streamsize(std::string_view text) {
    std::uint64_t value = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc() || stop != end) {
        throw exc::CRuntimeExc("Unable to convert [%1] to a number.", text);
    }
    return value;
}

bool str_is_starts_with(std::string_view text, std::string_view prefix) noexcept {
    return text.starts_with(prefix);
}

bool str_caseicmp(std::string_view left, std::string_view right) noexcept {
    return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                      [](char a, char b) { return fold(a) == fold(b); });
}

bool str_case_insensitive_less_operator::operator()(const std::string& left, const std::string& right) const noexcept {
    return std::lexicographical_compare(left.begin(), left.end(), right.begin(), right.end(),
                                        [](char a, char b) { return fold(a) < fold(b); });
}

std::vector<std::string> str_tokenize(std::string_view text, std::string_view delimiter) {
    std::vector<std::string> pieces;
    std::size_t begin = 0;
    while (!delimiter.empty()) {
        const std::size_t end = text.find(delimiter, begin);
        if (end == std::string_view::npos) {
            break;
        }
        pieces.emplace_back(text.substr(begin, end - begin));
        begin = end + delimiter.size();
    }
    pieces.emplace_back(text.substr(begin));
    return pieces;
}

std::vector<std::string> str_split_to_vector(std::string_view text, std::string_view delimiter) {
    return text.empty() ? std::vector<std::string>() : str_tokenize(text, delimiter);
}

std::string str_trim(std::string_view text, std::string_view chars) {
    const std::size_t begin = text.find_first_not_of(chars);
    if (begin == std::string_view::npos) {
        return {};
    }
    return std::string(text.substr(begin, text.find_last_not_of(chars) - begin + 1));
}

std::string str_trim_start(std::string_view text, std::string_view prefix) {
    return std::string(text.substr(text.starts_with(prefix) ? prefix.size() : 0));
}

std::string str_trim_end(std::string_view text, std::string_view suffix) {
    return std::string(text.substr(0, text.size() - (text.ends_with(suffix) ? suffix.size() : 0)));
}

std::string str_replace(std::string_view text, std::string_view from, std::string_view to) {
    std::string result;
    std::size_t begin = 0;
    for (std::size_t at = 0; !from.empty() && (at = text.find(from, begin)) != std::string_view::npos;) {
        result.append(text, begin, at - begin).append(to);
        begin = at + from.size();
    }
    return result.append(text, begin);
}

std::wstring tolower(std::wstring_view text) {
    std::wstring lower(text);
    const locale_t locale = case_locale();
    if (locale != locale_t{}) {
        std::transform(lower.begin(), lower.end(), lower.begin(), [locale](wchar_t c) {
            return static_cast<wchar_t>(towlower_l(static_cast<wint_t>(c), locale));
        });
    }
    return lower;
}

}  // namespace util
