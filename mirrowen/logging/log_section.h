#pragma once

#include <concepts>
#include <exception>
#include <string_view>

#include "mirrowen/export.h"
#include "mirrowen/logging/log_level.h"
#include "mirrowen/util/str_format.h"

namespace logging {

/// A named part of the log. All calls may come from any thread and from destructors: none throws, a line that cannot be
/// written is lost.
///
/// Each level takes a text, a text and an exception to attach, or a format with "%1", "%2", ... and its arguments. A
/// text without arguments is logged as it stands.
class MIRROWEN_API ILogSection {
  public:
    template <util::Formattable... Args>
    void tr(std::string_view format, const Args&... args) noexcept {
        Format(ELevel::eTrace, format, args...);
    }
    template <util::Formattable... Args>
    void info(std::string_view format, const Args&... args) noexcept {
        Format(ELevel::eInfo, format, args...);
    }
    template <util::Formattable... Args>
    void warn(std::string_view format, const Args&... args) noexcept {
        Format(ELevel::eWarn, format, args...);
    }
    template <util::Formattable... Args>
    void err(std::string_view format, const Args&... args) noexcept {
        Format(ELevel::eErr, format, args...);
    }

    void info(std::string_view text, const std::exception& attached) noexcept { Write(ELevel::eInfo, text, &attached); }
    void warn(std::string_view text, const std::exception& attached) noexcept { Write(ELevel::eWarn, text, &attached); }
    void err(std::string_view text, const std::exception& attached) noexcept { Write(ELevel::eErr, text, &attached); }

  protected:
    constexpr ILogSection() = default;
    ILogSection(const ILogSection&) = default;
    ILogSection& operator=(const ILogSection&) = default;
    /// Sections are never owned through this class; a trivial destructor keeps them usable until the process is gone.
    ~ILogSection() = default;

    /// Whether a line of this level would be written; asked before arguments are formatted.
    virtual bool IsEnabled(ELevel level) const noexcept = 0;

    /// Takes one line; `attached` may be null.
    virtual void Write(ELevel level, std::string_view text, const std::exception* attached) noexcept = 0;

  private:
    template <class... Args>
    void Format(ELevel level, std::string_view format, const Args&... args) noexcept {
        if constexpr (sizeof...(Args) == 0) {
            Write(level, format, nullptr);
        } else if (IsEnabled(level)) {
            try {
                Write(level, util::str_format(format, args...), nullptr);
            } catch (...) {  // out of memory: the line is lost, the caller goes on
            }
        }
    }
};

/// The section that writes to the process's sink (`logging::SetSink`) above the process's threshold. It is constant
/// initialised, so a section at namespace scope works before main and in exit handlers.
class MIRROWEN_API log_section_t final : public ILogSection {
  public:
    /// `name` must outlive the section; a literal is meant.
    explicit constexpr log_section_t(std::string_view name) noexcept : name_(name) {}

    std::string_view Name() const noexcept { return name_; }

  protected:
    bool IsEnabled(ELevel level) const noexcept override;
    void Write(ELevel level, std::string_view text, const std::exception* attached) noexcept override;

  private:
    std::string_view name_;
};

}  // namespace logging
