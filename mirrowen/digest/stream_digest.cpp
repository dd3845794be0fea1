#include "mirrowen/digest/stream_digest.h"

#include <xxhash.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <new>

#include "mirrowen/digest/zero_blocks.h"

namespace digest {

struct stream_digest_t::state_t {
    state_t() : xxh(XXH3_createState()) {
        if (xxh == nullptr) {
            throw std::bad_alloc();
        }
        XXH3_128bits_reset(xxh);
    }
    ~state_t() { XXH3_freeState(xxh); }
    state_t(const state_t&) = delete;
    state_t& operator=(const state_t&) = delete;

    XXH3_state_t* const xxh;
};

stream_digest_t::stream_digest_t() : state_(std::make_unique<state_t>()) {}

stream_digest_t::~stream_digest_t() = default;

void stream_digest_t::Add(std::span<const std::byte> bytes) noexcept {
    XXH3_128bits_update(state_->xxh, bytes.data(), bytes.size());
}

void stream_digest_t::AddZeroes(std::uint64_t count) noexcept {
    static constexpr std::array<std::byte, 16384> kZeroes{};
    if (count > kZeroes.size() && CanSkipZeroBlocks()) {
        Add(std::span(kZeroes).first(kZeroesBefore));
        count -= kZeroesBefore;
        SkipZeroBlocks(*state_->xxh, count / kZeroBlockSize);
        count %= kZeroBlockSize;
    }
    while (count != 0) {
        const auto part = static_cast<std::size_t>(std::min<std::uint64_t>(count, kZeroes.size()));
        Add(std::span(kZeroes).first(part));
        count -= part;
    }
}

block_digest_t stream_digest_t::Get() const noexcept {
    XXH128_canonical_t canonical;
    XXH128_canonicalFromHash(&canonical, XXH3_128bits_digest(state_->xxh));
    block_digest_t digest;
    static_assert(sizeof(canonical.digest) == sizeof(digest));
    std::memcpy(digest.data(), canonical.digest, sizeof(digest));
    return digest;
}

}  // namespace digest
