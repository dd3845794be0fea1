#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "agent/net/session_channel.h"
#include "agent/root/confined_root.h"
#include "agent/staging/partial.h"
#include "mirrowen/util/file_info.h"

namespace agent::query {

/// What a session answers from. Shared by all sessions; everything in it is called on any thread.
struct query_host_t {
    std::shared_ptr<const confined_root_t> root;
    /// What is kept of a file whose transfer broke off: its path below the root, the size and the time that it is to
    /// have. Empty where nothing is ever kept.
    std::function<std::optional<partial_t>(const std::string&, std::uint64_t, const util::SFileTime&)> findPartial;
    bool keepsOwners = false;  ///< any owner can be given to what is written here
    /// How often a peer that waits for an answer is told that it is being worked on.
    std::chrono::milliseconds workingInterval{std::chrono::seconds(5)};
};

/// Answers the questions of one session until the far end has ended it, as docs/protocol.md ("Query service") says. A
/// request that fails is answered with its reason and the session goes on; one that is malformed throws
/// `exc::CRuntimeExc` "Unknown question [%1]." or what reading it threw, and so does what ends the connection. No name
/// leads out of the root, and no link is followed.
void RunQuerySession(const std::shared_ptr<net::session_channel_t>& channel, const query_host_t& host);

}  // namespace agent::query
