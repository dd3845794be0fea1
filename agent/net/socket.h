#pragma once

#include "agent/net/endpoint.h"
#include "mirrowen/posix/unique_fd.h"
#include "mirrowen/synch/deadline.h"

namespace agent::net {

/// Connects to `endpoint`, trying each of its addresses until the limits end the attempt. Throws `exc::CRuntimeExc`
/// "Failed to connect to [%1]." with the last address's reason as cause.
posix::unique_fd_t Connect(const endpoint_t& endpoint, const synch::wait_limits_t& limits);

/// Who may reach a socket that listens.
enum class EReach {
    eLoopback,  ///< this machine only
    eNetwork,   ///< whatever the address lets in
};

/// A socket that listens on `endpoint`; port 0 picks a free one. Throws `exc::CRuntimeExc` "Failed to listen on [%1]."
/// with the reason as cause: the system's, or, with `eLoopback`, "Refusing to listen on [%1]: an unconfined process
/// serves loopback addresses only.".
posix::unique_fd_t Listen(const endpoint_t& endpoint, EReach reach = EReach::eLoopback);

/// The next connection of a listening socket, or an empty descriptor when none can be had at the moment (none is
/// waiting any more, descriptors or memory have run out). Throws `posix::errno_exc_t` "Failed to accept a connection on
/// [%1]" when none will ever come.
posix::unique_fd_t Accept(int listening);

/// The address that a bound socket has.
endpoint_t LocalEndpoint(int socket);
/// The address of the far end of a connected socket.
endpoint_t PeerEndpoint(int socket);

}  // namespace agent::net
