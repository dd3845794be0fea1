#pragma once

#include <exception>
#include <string_view>

#include "mirrowen/export.h"
#include "mirrowen/logging/log_section.h"

namespace logging {

/// Logs `error`, with all its causes, at error level of section "exc" under `context`. Never throws; any thread.
MIRROWEN_API void LogExc(const std::exception& error, std::string_view context) noexcept;

}  // namespace logging
