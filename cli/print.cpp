#include "cli/print.h"

#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>

#include "mirrowen/posix/errno_exc.h"
#include "mirrowen/util/str.h"

namespace cli {

namespace {

std::string hex_escape(unsigned byte) {
    static constexpr char digits[] = "0123456789abcdef";
    return {'\\', 'x', digits[byte >> 4], digits[byte & 0x0f]};
}

// A byte that is not UTF-8, as util::str_utf82w carries it.
bool is_carried_byte(wchar_t c) {
    return c >= 0xDC80 && c <= 0xDCFF;
}

enum class EBackslash { eKeep, eDouble };

std::string escaped_char(wchar_t c, EBackslash backslash) {
    const auto code = static_cast<char32_t>(c);
    if (c == L'\\' && backslash == EBackslash::eDouble) {
        return "\\\\";
    }
    if (c == L'\n') {
        return "\\n";
    }
    if (code < 0x20 || code == 0x7f) {
        return hex_escape(code);
    }
    if (code >= 0x80 && code < 0xa0) {  // controls that a terminal obeys, two bytes in UTF-8
        return hex_escape(0xc2) + hex_escape(code);
    }
    return is_carried_byte(c) ? hex_escape(code - 0xDC00) : util::str_w2utf8(std::wstring_view(&c, 1));
}

std::string escaped(std::string_view bytes, EBackslash backslash) {
    std::string out;
    for (const wchar_t c : util::str_utf82w(bytes)) {
        out += escaped_char(c, backslash);
    }
    return out;
}

void write_error_line(std::string_view line) noexcept {
    try {
        const std::string text = "tarn: " + escaped(line, EBackslash::eKeep) + "\n";
        (void)std::fwrite(text.data(), 1, text.size(), stderr);
    } catch (...) {  // out of memory: the exit code still tells
    }
}

}  // namespace

void PrintError(const std::exception& error) noexcept {
    std::string_view text = error.what();
    for (;;) {
        const std::size_t end = text.find('\n');
        write_error_line(text.substr(0, end));
        if (end == std::string_view::npos) {
            return;
        }
        text.remove_prefix(end + 1);
    }
}

void PrintNote(std::string_view text) noexcept {
    write_error_line(text);
}

void PrintLine(std::string_view text) {
    WriteOut(std::string(text) + "\n");
}

void WriteOut(std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t written = ::write(STDOUT_FILENO, bytes.data(), bytes.size());
        if (written >= 0) {
            bytes.remove_prefix(static_cast<std::size_t>(written));
        } else if (errno != EINTR) {
            throw posix::errno_exc_t("Failed to write to [%1]", "standard output", errno);
        }
    }
}

std::string Printable(std::string_view bytes) {
    return escaped(bytes, EBackslash::eDouble);
}

}  // namespace cli
