#include "brannock/transmission/item_digest.h"

#include <cstring>

namespace brannock::transmission {

std::array<std::byte, 32> item_digest_t::Get() const {
    const digest::block_digest_t canonical = stream_.Get();
    std::array<std::byte, 32> digest{};
    std::memcpy(digest.data(), canonical.data(), canonical.size());
    return digest;
}

}  // namespace brannock::transmission
