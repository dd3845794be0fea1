#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <span>

#include "mirrowen/export.h"
#include "mirrowen/synch/mutex.h"

namespace digest {

/// A block's digest: XXH3-128, canonical (big-endian) byte order. Source: the xxHash specification, XXH3.
using block_digest_t = std::array<std::uint8_t, 16>;

MIRROWEN_API block_digest_t ComputeBlockDigest(std::span<const std::byte> bytes) noexcept;

/// The digests of an item's blocks by block index. Any thread.
class MIRROWEN_API digests_t {
  public:
    /// A second digest for an index replaces the first.
    void Register(std::uint64_t blockIndex, const block_digest_t& digest);
    std::map<std::uint64_t, block_digest_t> GetAll() const;

  private:
    mutable synch::mutex_t mutex_;
    std::map<std::uint64_t, block_digest_t> digests_ GUARDED_BY(mutex_);
};

}  // namespace digest
