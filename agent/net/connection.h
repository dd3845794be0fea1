#pragma once

#include <memory>

#include "agent/net/endpoint.h"
#include "agent/net/preamble.h"
#include "agent/net/remote_options.h"
#include "agent/net/session_channel.h"

namespace agent::net {

/// A granted connection: its channel, and what the far end allows.
struct connection_t {
    std::shared_ptr<session_channel_t> channel;
    server_hello_t limits;
};

/// Connects to an agent and asks for a service; the dialogue of that service is next on the channel. `scope` is opened
/// on each of the channel's own threads. Throws `exc::CRuntimeExc` "Failed to open a session with [%1]." with the
/// reason as cause; a refusal's reason is the text of the far end.
connection_t OpenConnection(const endpoint_t& endpoint, EService service, const remote_options_t& options,
                            thread_scope_t scope = {});

}  // namespace agent::net
