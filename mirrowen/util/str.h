#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "mirrowen/export.h"

namespace util {

/// Decimal texts.
MIRROWEN_API std::string str_from_streamsize(std::uint64_t size);
MIRROWEN_API std::string str_from_size_t(std::size_t size);
/// "true" or "false".
MIRROWEN_API std::string str_from_bool(bool value);
/// With exactly `decimals` digits behind the point, rounded, whatever the locale; "inf" and "nan" as they are.
MIRROWEN_API std::string str_from_double(double value, unsigned decimals);
/// Bytes for people: two lower-case hexadecimal digits each, nothing between them.
MIRROWEN_API std::string str_from_bin(const void* data, std::size_t size);
/// A size for people: "1536 (1.50 KiB)"; plain below 1 KiB: "512".
MIRROWEN_API std::string str_fsize(std::uint64_t size);

/// The decimal number that `text` is. Throws `exc::CRuntimeExc` "Unable to convert [%1] to a number." for anything
/// else: empty, signs, blanks, other characters, more than 64 bits.
MIRROWEN_API std::uint64_t str_to_streamsize(std::string_view text);

/// Exact, case-sensitive.
MIRROWEN_API bool str_is_starts_with(std::string_view text, std::string_view prefix) noexcept;

/// Whether both are equal when ASCII letters are folded (true for equal strings, unlike the three-way comparisons of
/// similar names).
MIRROWEN_API bool str_caseicmp(std::string_view left, std::string_view right) noexcept;

/// Orders strings byte by byte with ASCII letters folded; keys of the factory registries.
struct MIRROWEN_API str_case_insensitive_less_operator {
    bool operator()(const std::string& left, const std::string& right) const noexcept;
};

/// The pieces between the delimiters, empty ones kept: separators + 1 pieces, also for an empty text.
MIRROWEN_API std::vector<std::string> str_tokenize(std::string_view text, std::string_view delimiter);

/// The pieces between the delimiters, empty ones kept; an empty text has none.
MIRROWEN_API std::vector<std::string> str_split_to_vector(std::string_view text, std::string_view delimiter);

/// Without the leading and trailing characters that are in `chars`.
MIRROWEN_API std::string str_trim(std::string_view text, std::string_view chars);
/// Without one `prefix` at the start, or one `suffix` at the end; as it is when there is none.
MIRROWEN_API std::string str_trim_start(std::string_view text, std::string_view prefix);
MIRROWEN_API std::string str_trim_end(std::string_view text, std::string_view suffix);

/// Every `from`, found from the left without looking at what was put in, becomes `to`; an empty `from` is nowhere.
MIRROWEN_API std::string str_replace(std::string_view text, std::string_view from, std::string_view to);

/// UTF-8 to wide and back. Bytes that are not UTF-8 are carried as U+DC80 to U+DCFF and come back as they were, so
/// every byte string survives the round trip.
MIRROWEN_API std::wstring str_utf82w(std::string_view text);
MIRROWEN_API std::string str_w2utf8(std::wstring_view text);

/// Each character in lower case (simple one-to-one mapping of the C.UTF-8 locale).
MIRROWEN_API std::wstring tolower(std::wstring_view text);

}  // namespace util
