#pragma once

#include <exception>
#include <string>
#include <string_view>

namespace cli {

/// Prints "tarn: " and the whole chain of causes on standard error, one cause a line. Control bytes and bytes that are
/// not UTF-8 are escaped.
void PrintError(const std::exception& error) noexcept;

/// Prints one line on standard error, with "tarn: " before it, escaped likewise.
void PrintNote(std::string_view text) noexcept;

/// Prints a line on standard output; a failure to write throws.
void PrintLine(std::string_view text);

/// Writes bytes to standard output as they are; a failure throws `posix::errno_exc_t` "Failed to write to [%1]".
void WriteOut(std::string_view bytes);

/// Bytes for a terminal or a JSON text: control bytes, bytes that are not UTF-8, and the backslash are written as \xNN,
/// "\n" and "\\", so the text shows exactly one thing and can be turned back.
std::string Printable(std::string_view bytes);

}  // namespace cli
