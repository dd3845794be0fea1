#pragma once

#include <atomic>
#include <cstdint>

#include "brannock/export.h"

namespace brannock::transmission {

/// How far a receive has come: bytes of the item handed to the destination in order. Written by the transfer, read by
/// anyone.
class BRANNOCK_API processed_offset_holder_t {
  public:
    void SetOffset(std::uint64_t offset) noexcept { offset_.store(offset, std::memory_order_release); }
    std::uint64_t GetOffset() const noexcept { return offset_.load(std::memory_order_acquire); }

  private:
    std::atomic<std::uint64_t> offset_{0};
};

}  // namespace brannock::transmission
