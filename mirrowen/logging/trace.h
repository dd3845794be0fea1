#pragma once

#include <string>
#include <string_view>
#include <utility>

#include "mirrowen/export.h"
#include "mirrowen/logging/log_section.h"
#include "mirrowen/util/str_format.h"

namespace logging {

/// Frames a long operation in the log: the opening text when the scope begins, the success text when `ok` is called,
/// and "Failed: " with the opening text when the scope ends without `ok`. All three lines are at trace level. One
/// thread.
class MIRROWEN_API trace_t {
  public:
    template <util::Formattable... Args>
    explicit trace_t(ILogSection& section, std::string_view format, const Args&... args)
        : trace_t(filled_t{}, section, sizeof...(Args) == 0 ? std::string(format) : util::str_format(format, args...)) {
    }
    trace_t(const trace_t&) = delete;
    trace_t& operator=(const trace_t&) = delete;
    ~trace_t();

    /// Success with a closing line.
    void ok(std::string_view text) noexcept;
    /// Success without a line.
    void ok() noexcept;

  private:
    /// Sets the constructor for a finished text apart, which a literal would otherwise match as well.
    struct filled_t {};
    trace_t(filled_t, ILogSection& section, std::string&& opening);

    ILogSection& section_;
    std::string opening_;
    bool open_ = true;
};

/// As `trace_t`, but silent unless the scope ends without `ok`: then it leaves the line "Failed: " with its text.
class MIRROWEN_API trace_fail_t {
  public:
    template <util::Formattable... Args>
    explicit trace_fail_t(ILogSection& section, std::string_view format, const Args&... args)
        : section_(section), text_(sizeof...(Args) == 0 ? std::string(format) : util::str_format(format, args...)) {}
    trace_fail_t(const trace_fail_t&) = delete;
    trace_fail_t& operator=(const trace_fail_t&) = delete;
    ~trace_fail_t();

    void ok() noexcept;
    /// Success with a text that states it; logged at trace level.
    void ok(std::string_view text) noexcept;

  private:
    ILogSection& section_;
    std::string text_;
    bool open_ = true;
};

}  // namespace logging
