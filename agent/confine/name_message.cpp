#include "agent/confine/name_message.h"

#include <array>
#include <cstring>

namespace agent {

namespace {

using numbers_t = std::array<std::uint32_t, 3>;

}  // namespace

std::string EncodeNameMessage(const name_message_t& message) {
    const numbers_t numbers{message.id, message.code, message.number};
    std::string bytes(sizeof numbers, '\0');
    std::memcpy(bytes.data(), numbers.data(), sizeof numbers);
    return bytes + message.name;
}

std::optional<name_message_t> DecodeNameMessage(std::string_view bytes) {
    numbers_t numbers{};
    if (bytes.size() < sizeof numbers || bytes.size() > kMaxNameMessage) {
        return std::nullopt;
    }
    std::memcpy(numbers.data(), bytes.data(), sizeof numbers);
    return name_message_t{numbers[0], numbers[1], numbers[2], std::string(bytes.substr(sizeof numbers))};
}

}  // namespace agent
