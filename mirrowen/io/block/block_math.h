#pragma once

#include <cstdint>

#include "mirrowen/export.h"

namespace io::block {

/// Smallest and largest block that a transfer may use, and the one used when nobody chose.
inline constexpr std::uint64_t kMinBlockSize = 4096;
inline constexpr std::uint64_t kMaxBlockSize = std::uint64_t{16} << 20;
inline constexpr std::uint64_t kDefaultBlockSize = std::uint64_t{1} << 20;

/// Sizes of the blocks that a file is cut into.
class MIRROWEN_API block_math_t {
  public:
    /// Throws `exc::CRuntimeExc` "Block granularity [%1] is out of range." unless 1 <= `granularity` <= kMaxBlockSize.
    explicit block_math_t(std::uint64_t granularity);

    /// The size of every block but the last: the granularity itself.
    std::uint64_t GetStandardBlockSize() const noexcept { return granularity_; }

  private:
    std::uint64_t granularity_;
};

}  // namespace io::block
