#pragma once

#include <cstdint>

struct XXH3_state_s;

namespace digest {

/// Takes `state`, whose last kZeroesBefore bytes were zeroes, forward by `blocks` times kZeroBlockSize zero bytes,
/// about ten times as fast as hashing them. The state must be one without seed and without a secret of its own.
///
/// Source: the xxHash specification, XXH3 of long inputs. A stripe of zeroes adds a constant to each accumulator, so
/// all that a whole block of stripes does is one addition and the scrambling at its end. This reaches into the
/// library's state; CanSkipZeroBlocks says whether the library that runs is the one whose header was compiled.
void SkipZeroBlocks(XXH3_state_s& state, std::uint64_t blocks) noexcept;

bool CanSkipZeroBlocks() noexcept;

inline constexpr std::uint64_t kZeroBlockSize = 1024;
/// More than the state can still hold back for later.
inline constexpr std::uint64_t kZeroesBefore = 2048;

}  // namespace digest
