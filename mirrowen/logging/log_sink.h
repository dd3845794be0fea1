#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "mirrowen/export.h"
#include "mirrowen/logging/log_level.h"

namespace logging {

/// One line of the log as it leaves a section.
struct record_t {
    ELevel level = ELevel::eInfo;
    std::string_view section;
    std::string_view text;   ///< the message, unescaped
    std::string_view error;  ///< what() of the attached exception, or empty
};

/// Where log lines end up. `Write` is called from any thread, also from destructors, and may not throw; the views of
/// the record live until it returns.
class MIRROWEN_API ILogSink {
  public:
    virtual ~ILogSink();
    virtual void Write(const record_t& record) noexcept = 0;
};

/// Sends the log of the whole process to `sink` and returns the sink used until now (empty: the default). An empty
/// `sink` restores the default, which prints lines to standard error. Any thread; lines in flight go to either sink.
MIRROWEN_API std::shared_ptr<ILogSink> SetSink(std::shared_ptr<ILogSink> sink);

/// Lines below `threshold` are dropped before they are formatted. A process that sets nothing logs warnings and errors.
MIRROWEN_API void SetThreshold(ELevel threshold) noexcept;
MIRROWEN_API ELevel GetThreshold() noexcept;

/// `text` with everything that could end a line or command a terminal written as \xNN: control bytes (below 0x20 and
/// 0x7f; newline as "\n"), the controls U+0080 to U+009F and bytes that are not UTF-8. One record stays one line.
MIRROWEN_API std::string EscapeControls(std::string_view text);

}  // namespace logging
