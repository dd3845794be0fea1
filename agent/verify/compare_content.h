#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "mirrowen/io/area/area_read_dev.h"

namespace agent::verify {

/// Reads both sources to their ends, or to the first difference, and says how they differ ("content differs at byte
/// 4096", "the second ends at byte 5"), or nothing. How they cut their content into areas makes no difference, and a
/// hole equals the zeroes that it stands for. Adds the bytes compared to `bytes`. Throws what a source throws.
std::optional<std::string> CompareContent(io::area::area_read_dev_t& first, io::area::area_read_dev_t& second,
                                          std::uint64_t& bytes);

}  // namespace agent::verify
