#pragma once

#include <cstddef>
#include <cstdint>

#include "mirrowen/export.h"

namespace util {

/// CRC-32C (Castagnoli, RFC 3720 appendix B.4): initial and final inversion included, so `crc32c(0, "123456789", 9)` is
/// 0xE3069283. Passing an earlier result as `seed` continues it: crc32c(crc32c(0, a), b) == crc32c(0, a + b).
/// `length` 0 returns `seed`.
MIRROWEN_API std::uint32_t crc32c(std::uint32_t seed, const void* data, std::size_t length) noexcept;

}  // namespace util
