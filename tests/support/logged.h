#pragma once

#include <string_view>

#include "mirrowen/logging/log_level.h"
#include "tests/support/log_capture.h"

namespace tests {

/// Whether the library's log section has a line of this level with exactly this text, and, when `error` is given, with
/// an attached exception that mentions it.
inline bool Logged(const log_capture_t& log, logging::ELevel level, std::string_view text,
                   std::string_view error = {}) {
    for (const auto& record : log.Lines()) {
        if (record.section == "fs_log" && record.level == level && record.text == text &&
            record.error.find(error) != std::string::npos) {
            return true;
        }
    }
    return false;
}

}  // namespace tests
