#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "mirrowen/util/file_info.h"

namespace agent {

/// What the process that looks up names is asked.
enum class ENameQuestion : std::uint32_t { eUserName = 1, eGroupName = 2, eFindUser = 3, eFindGroup = 4 };

/// One message between a confined process and the process that looks up names for it, either way. Both are the same
/// program on the same machine, so the numbers travel as they lie in memory.
struct name_message_t {
    std::uint32_t id = 0;      ///< of the question; its answer has the same
    std::uint32_t code = 0;    ///< question: an ENameQuestion; answer: 1 when there is one, else 0
    std::uint32_t number = 0;  ///< of the user or group
    std::string name;

    friend bool operator==(const name_message_t&, const name_message_t&) = default;
};

/// The longest name that is asked for or answered; longer ones count as unknown.
inline constexpr std::size_t kMaxNameInMessage = util::kMaxPrincipalName;

/// The most bytes of a message.
inline constexpr std::size_t kMaxNameMessage = 3 * sizeof(std::uint32_t) + kMaxNameInMessage;

/// The message's bytes: three numbers, then the name to the end.
std::string EncodeNameMessage(const name_message_t& message);

/// The message of these bytes; nothing when there are fewer than the numbers take or more than kMaxNameMessage.
std::optional<name_message_t> DecodeNameMessage(std::string_view bytes);

}  // namespace agent
