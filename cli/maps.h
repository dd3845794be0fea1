#pragma once

#include <vector>

#include "cli/command_line.h"

namespace cli {

/// Fills the library's restore view.
void ApplyMaps(const std::vector<mapping_t>& maps);

}  // namespace cli
