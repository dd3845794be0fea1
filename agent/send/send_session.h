#pragma once

#include <cstdint>
#include <memory>

#include "agent/net/session_channel.h"
#include "agent/root/confined_root.h"

namespace agent::send {

/// Runs one session of the send service on the calling thread until the far end has ended it: each item that is asked
/// for is read below `root`, never through a link and never from the staging folder, and sent as the client of the
/// upload dialogue. An item that cannot be opened is answered with the reason and the session goes on; one that fails
/// on its way, and a request that makes no sense, end the session.
///
/// Throws what ends the session early: "Request [%1] of the send service is not known.", the channel's errors, those of
/// the upload.
void RunSendSession(const std::shared_ptr<net::session_channel_t>& channel, std::uint32_t transportVersion,
                    const std::shared_ptr<const confined_root_t>& root);

}  // namespace agent::send
