#include "mirrowen/digest/zero_blocks.h"

#define XXH_STATIC_LINKING_ONLY  // shows the members of the state
#include <xxhash.h>

#include <array>
#include <cstddef>
#include <utility>

#include "mirrowen/io/little_endian.h"

namespace digest {

namespace {

constexpr std::size_t kLanes = 8;
constexpr std::size_t kStripes = 16;  // of a block
constexpr std::uint64_t kPrime32 = 0x9E3779B1;
using lanes_t = std::array<std::uint64_t, kLanes>;

std::uint64_t Word(const unsigned char* secret, std::size_t index) noexcept {
    return io::DecodeLittleEndian<std::uint64_t>(reinterpret_cast<const std::byte*>(secret) + index * 8);
}

// What the stripes `first` to `last` of a block add when all their bytes are zero.
lanes_t SumOfStripes(const unsigned char* secret, std::size_t first, std::size_t last) noexcept {
    lanes_t sum{};
    for (std::size_t stripe = first; stripe < last; ++stripe) {
        for (std::size_t lane = 0; lane < kLanes; ++lane) {
            const std::uint64_t key = Word(secret, stripe + lane);
            sum[lane] += (key & 0xFFFFFFFF) * (key >> 32);
        }
    }
    return sum;
}

// The scrambling at the end of a block, then what the next block adds. Written out lane by lane, so that all of them
// stay in registers.
template <std::size_t... Lane>
lanes_t ScrambleAndAdd(lanes_t lanes, const lanes_t& scramble, const lanes_t& sum, std::uint64_t times,
                       std::index_sequence<Lane...> /*lanes*/) noexcept {
    for (std::uint64_t block = 0; block < times; ++block) {
        ((lanes[Lane] = (lanes[Lane] ^ lanes[Lane] >> 47 ^ scramble[Lane]) * kPrime32 + sum[Lane]), ...);
    }
    return lanes;
}

}  // namespace

bool CanSkipZeroBlocks() noexcept {
    return XXH_versionNumber() == XXH_VERSION_NUMBER;
}

void SkipZeroBlocks(XXH3_state_s& state, std::uint64_t blocks) noexcept {
    const unsigned char* const secret = state.extSecret;
    const lanes_t rest = SumOfStripes(secret, state.nbStripesSoFar, kStripes);
    const lanes_t all = SumOfStripes(secret, 0, kStripes);
    lanes_t lanes;
    lanes_t scramble;
    for (std::size_t lane = 0; lane < kLanes; ++lane) {
        lanes[lane] = state.acc[lane] + rest[lane];  // now at the end of a block
        scramble[lane] = Word(secret + state.secretLimit, lane);
    }
    lanes = ScrambleAndAdd(lanes, scramble, all, blocks, std::make_index_sequence<kLanes>());
    for (std::size_t lane = 0; lane < kLanes; ++lane) {
        state.acc[lane] = lanes[lane] - rest[lane];
    }
    state.totalLen += blocks * kZeroBlockSize;
}

}  // namespace digest
