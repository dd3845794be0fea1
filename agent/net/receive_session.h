#pragma once

#include <cstdint>
#include <memory>

#include "agent/net/session_channel.h"

namespace agent::net {

/// Runs one upload session on the calling thread until the far end has ended it: every command of the dialogue is
/// served. Throws what ends the session early. Whoever listens puts the thread inside the gate first.
void RunReceiveSession(const std::shared_ptr<session_channel_t>& channel, std::uint32_t transportVersion);

}  // namespace agent::net
