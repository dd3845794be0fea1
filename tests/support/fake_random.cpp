#include "tests/support/fake_random.h"

namespace tests {

fake_random_t::fake_random_t(std::uint64_t seed) : engine_(seed) {}

fake_random_t::~fake_random_t() = default;

void fake_random_t::Fill(std::span<std::byte> out) {
    const std::scoped_lock lock(mutex_);
    for (std::byte& byte : out) {
        byte = static_cast<std::byte>(engine_() & 0xFF);
    }
}

}  // namespace tests
