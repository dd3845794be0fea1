#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "tests/support/log_capture.h"

namespace tests {

/// Captures the log and tells it section by section and level by level.
class log_lines_t {
  public:
    std::vector<std::string> Trace(std::string_view section = kLibrary) const {
        return Texts(section, logging::ELevel::eTrace);
    }
    std::vector<std::string> Info(std::string_view section = kLibrary) const {
        return Texts(section, logging::ELevel::eInfo);
    }
    std::vector<std::string> Warn(std::string_view section = kLibrary) const {
        return Texts(section, logging::ELevel::eWarn);
    }
    std::vector<std::string> Err(std::string_view section = kLibrary) const {
        return Texts(section, logging::ELevel::eErr);
    }
    void Clear() { capture_.Clear(); }

  private:
    static constexpr std::string_view kLibrary = "fs_log";

    std::vector<std::string> Texts(std::string_view section, logging::ELevel level) const {
        std::vector<std::string> texts;
        for (const log_line_t& line : capture_.Lines()) {
            if (line.section == section && line.level == level) {
                texts.push_back(line.text);
            }
        }
        return texts;
    }

    log_capture_t capture_;
};

}  // namespace tests
