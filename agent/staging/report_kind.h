#pragma once

#include <cstdint>

namespace agent {

/// Kinds of the reports about an agent item, beside those of `util::EMetaProblem`, which say why an attribute could not
/// be applied (0 to 3).
///
/// An entry of a committed group did not get its name, or the storage did not confirm that it has: the report's entry
/// is its number, the text the cause. The other entries went on.
inline constexpr std::uint32_t kEntryFailed = 16;

}  // namespace agent
