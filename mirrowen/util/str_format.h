#pragma once

#include <concepts>
#include <initializer_list>
#include <string>
#include <string_view>
#include <type_traits>

#include "mirrowen/export.h"

namespace util {

/// Fills the numbered placeholders "%1", "%2", ... of `format` with `args`.
///
/// - A placeholder is '%' and one or two decimal digits, read greedily while an argument of that number exists ("%12"
/// is
///   argument 12 when there is one, else argument 1 followed by "2"); "%0" is text.
/// - A placeholder without an argument, and a '%' before anything else, stay as they stand; a surplus argument is
/// ignored.
/// - Inserted text is not scanned again, so a path that contains "%1" is printed as it is.
MIRROWEN_API std::string str_format_list(std::string_view format, std::initializer_list<std::string_view> args);

namespace detail {

inline std::string_view to_text(std::string_view text) {
    return text;
}

/// Counts and codes appear in messages in decimal; `bool` is left out on purpose, see `str_from_bool`.
template <std::integral T>
requires(!std::same_as<T, bool> && !std::same_as<T, char>) std::string to_text(T value) {
    return std::to_string(value);
}

}  // namespace detail

/// What may fill a placeholder: text of any string type, or an integer (printed in decimal).
template <class T>
concept Formattable = std::convertible_to<const T&, std::string_view> ||
    (std::integral<T> && !std::same_as<T, bool> && !std::same_as<T, char>);

/// `str_format_list` for arguments of mixed types.
template <Formattable... Args>
std::string str_format(std::string_view format, const Args&... args) {
    return str_format_list(format, {std::string_view(detail::to_text(args))...});
}

}  // namespace util
