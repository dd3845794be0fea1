#include "agent/staging/staging_names.h"

#include <array>
#include <cstddef>

#include "mirrowen/util/random.h"

namespace agent {

namespace {

constexpr std::size_t kNameBytes = 16;

}  // namespace

std::string NewStagingName() {
    constexpr char digits[] = "0123456789abcdef";
    std::array<std::byte, kNameBytes> bytes{};
    util::random().Fill(bytes);
    std::string name;
    name.reserve(2 * kNameBytes);
    for (const std::byte byte : bytes) {
        name += digits[std::to_integer<unsigned>(byte >> 4)];
        name += digits[std::to_integer<unsigned>(byte & std::byte{15})];
    }
    return name;
}

}  // namespace agent
