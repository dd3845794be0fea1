#include "mirrowen/util/str_format.h"

#include <cstddef>

namespace util {

namespace {

constexpr std::size_t kMaxDigits = 2;

struct placeholder_t {
    std::size_t argument = 0;  // 1-based; 0 means that no argument fits
    std::size_t length = 0;    // characters taken, the '%' included
};

bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

// Reads the placeholder that begins at `text[0] == '%'`; the longest number that names an argument wins.
placeholder_t read_placeholder(std::string_view text, std::size_t argumentCount) {
    placeholder_t found;
    std::size_t number = 0;
    for (std::size_t digits = 1; digits <= kMaxDigits && digits < text.size() && is_digit(text[digits]); ++digits) {
        number = number * 10 + static_cast<std::size_t>(text[digits] - '0');
        if (number == 0) {
            break;
        }
        if (number <= argumentCount) {
            found = {number, digits + 1};
        }
    }
    return found;
}

}  // namespace

std::string str_format_list(std::string_view format, std::initializer_list<std::string_view> args) {
    std::string out;
    out.reserve(format.size() + 32 * args.size());
    while (!format.empty()) {
        const std::size_t percent = format.find('%');
        out.append(format.substr(0, percent));
        if (percent == std::string_view::npos) {
            break;
        }
        format.remove_prefix(percent);
        const placeholder_t found = read_placeholder(format, args.size());
        if (found.argument != 0) {
            out.append(*(args.begin() + (found.argument - 1)));
            format.remove_prefix(found.length);
        } else {
            out.push_back('%');
            format.remove_prefix(1);
        }
    }
    return out;
}

}  // namespace util
