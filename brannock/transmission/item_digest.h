#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "mirrowen/digest/stream_digest.h"

namespace brannock::transmission {

/// XXH3-128 over the bytes of an item in the order of its blocks. One thread at a time.
class item_digest_t {
  public:
    void Add(std::span<const std::byte> bytes) { stream_.Add(bytes); }
    void AddZeroes(std::uint64_t count) { stream_.AddZeroes(count); }
    /// The digest in canonical (big-endian) order, then 16 zero bytes.
    std::array<std::byte, 32> Get() const;

  private:
    digest::stream_digest_t stream_;
};

}  // namespace brannock::transmission
