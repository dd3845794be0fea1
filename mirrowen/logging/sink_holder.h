#pragma once

#include <memory>

#include "mirrowen/logging/log_sink.h"

namespace logging {

/// The sink that the process's log goes to at this moment, never empty. Internal to the logging room.
std::shared_ptr<ILogSink> CurrentSink();

/// The sink of a process that configured none: one line a record on standard error, control bytes escaped.
std::shared_ptr<ILogSink> MakeStderrSink();

}  // namespace logging
