#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "mirrowen/logging/log_sink.h"

namespace tests {

/// One line of the log, with copies of what the sink was shown.
struct log_line_t {
    logging::ELevel level;
    std::string section;
    std::string text;
    std::string error;  ///< what() of the attached exception
};

/// Takes the log of the whole process, from trace level on, for the life of this object; afterwards sink and threshold
/// are what they were. The log may come from any thread and the questions too. One at a time.
class log_capture_t {
  public:
    explicit log_capture_t(logging::ELevel threshold = logging::ELevel::eTrace);
    ~log_capture_t();
    log_capture_t(const log_capture_t&) = delete;
    log_capture_t& operator=(const log_capture_t&) = delete;

    /// Everything logged until now, oldest first.
    std::vector<log_line_t> Lines() const;
    /// The texts of one level, oldest first.
    std::vector<std::string> Texts(logging::ELevel level) const;
    /// Whether a line of this level has exactly this text.
    bool Has(logging::ELevel level, std::string_view text) const;
    /// How many lines of this level have exactly this text.
    std::size_t Count(logging::ELevel level, std::string_view text) const;
    /// All lines as text for a failure message.
    std::string Dump() const;
    void Clear();

  private:
    class sink_t;
    std::shared_ptr<sink_t> sink_;
    std::shared_ptr<logging::ILogSink> previousSink_;
    logging::ELevel previousThreshold_;
};

}  // namespace tests
