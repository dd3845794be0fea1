#pragma once

#include "mirrowen/logging/log_section.h"
#include "tarn/export.h"

namespace tarn {

/// The log section of the library: everything it logs goes here.
extern TARN_API logging::log_section_t fs_log;

}  // namespace tarn
