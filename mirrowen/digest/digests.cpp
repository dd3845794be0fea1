#include "mirrowen/digest/digests.h"

#include <xxhash.h>

#include <algorithm>
#include <iterator>

namespace digest {

block_digest_t ComputeBlockDigest(std::span<const std::byte> bytes) noexcept {
    XXH128_canonical_t canonical;
    XXH128_canonicalFromHash(&canonical, XXH3_128bits(bytes.data(), bytes.size()));
    block_digest_t digest;
    static_assert(sizeof(canonical.digest) == sizeof(digest));
    std::copy(std::begin(canonical.digest), std::end(canonical.digest), digest.begin());
    return digest;
}

void digests_t::Register(std::uint64_t blockIndex, const block_digest_t& digest) {
    const synch::lock_t lock(mutex_);
    digests_[blockIndex] = digest;
}

std::map<std::uint64_t, block_digest_t> digests_t::GetAll() const {
    const synch::lock_t lock(mutex_);
    return digests_;
}

}  // namespace digest
