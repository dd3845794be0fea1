#pragma once

#include <cstdint>

namespace logging {

/// Levels in rising weight. `eOff` is a threshold only: nothing is logged at it.
enum class ELevel : std::uint8_t { eTrace, eInfo, eWarn, eErr, eOff };

}  // namespace logging
