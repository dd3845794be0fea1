#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include "mirrowen/digest/digests.h"
#include "mirrowen/export.h"

namespace digest {

/// XXH3-128 over bytes that come piece by piece. The digest is that of ComputeBlockDigest over all of them, however
/// they were cut. One thread at a time.
class MIRROWEN_API stream_digest_t {
  public:
    /// Throws `std::bad_alloc`.
    stream_digest_t();
    ~stream_digest_t();
    stream_digest_t(const stream_digest_t&) = delete;
    stream_digest_t& operator=(const stream_digest_t&) = delete;

    void Add(std::span<const std::byte> bytes) noexcept;
    /// As Add with so many zero bytes, which need not be in memory; a long run takes a small part of the time (a TiB
    /// some seconds).
    void AddZeroes(std::uint64_t count) noexcept;
    /// The digest of what has come until now; more may follow.
    block_digest_t Get() const noexcept;

  private:
    struct state_t;
    std::unique_ptr<state_t> state_;
};

}  // namespace digest
