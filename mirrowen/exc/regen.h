#pragma once

#include <string>
#include <string_view>

#include "mirrowen/export.h"
#include "mirrowen/util/str_format.h"

/// Adding context to an error on its way up. Both functions are called inside a catch block and throw a
/// `exc::CRuntimeExc` with the new text, whose cause is the exception being handled. `CAlreadyExistsExc` is the
/// caller's to let through first: `catch (const exc::CAlreadyExistsExc&) { throw; }`.
namespace exc {

namespace detail {

[[noreturn]] MIRROWEN_API void RegenText(std::string text);
[[noreturn]] MIRROWEN_API void RegenTraceText(std::string text);

}  // namespace detail

/// Throws `CRuntimeExc(format filled with args)` over the current exception.
template <util::Formattable... Args>
[[noreturn]] void RegenExc(std::string_view format, const Args&... args) {
    detail::RegenText(util::str_format(format, args...));
}

/// As `RegenExc`, and leaves a line with the new text and the causes in the trace log of section "exc".
template <util::Formattable... Args>
[[noreturn]] void RegenTraceExc(std::string_view format, const Args&... args) {
    detail::RegenTraceText(util::str_format(format, args...));
}

}  // namespace exc
