#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

#include "agent/net/endpoint.h"
#include "agent/net/preamble.h"
#include "agent/net/remote_options.h"
#include "agent/net/session_channel.h"
#include "mirrowen/synch/mutex.h"

namespace agent::net {

/// How one connection ended.
struct session_report_t {
    std::string peer;
    std::chrono::milliseconds duration{0};
    std::string error;  ///< what() of the failure, or empty
};

/// How many connections may stand open beside the granted sessions.
inline constexpr std::size_t kSpareConnections = 64;

struct listener_options_t {
    endpoint_t endpoint;
    /// What is offered; a connection for anything else is refused.
    std::vector<EService> services{EService::eSession};
    std::size_t maxSessions = 64;
    std::chrono::milliseconds idleTimeout{std::chrono::seconds(120)};
    std::chrono::milliseconds preambleTimeout{std::chrono::seconds(10)};
    std::uint64_t minimumRate = kDefaultMinimumRate;
    /// Opened on every thread that works for a session; may be empty.
    thread_scope_t threadScope;
    /// Called on the session's thread when a connection has ended; may be empty. It must not throw.
    std::function<void(const session_report_t&)> onSessionEnd;
};

/// Accepts connections and runs each as a session on a thread of its own. A connection over the limit, of another
/// version or for a service that is not offered is answered with its status and closed. Connections that have not said
/// yet what they want are bounded too: beyond kSpareConnections more than the sessions they are closed without an
/// answer.
class listener_t {
  public:
    /// Runs one session, for one of the services that are offered; throws when it fails. Called on the session's
    /// thread. `hello` is what the connecting side said: its service, its transport version.
    using session_handler_t =
        std::function<void(const std::shared_ptr<session_channel_t>& channel, const client_hello_t& hello)>;

    /// Binds and listens at once, on loopback addresses only; errors as those of `Listen`.
    listener_t(listener_options_t options, session_handler_t handler);
    /// Takes over a socket that listens already; the options' endpoint is not used.
    listener_t(listener_options_t options, session_handler_t handler, posix::unique_fd_t socket);
    listener_t(const listener_t&) = delete;
    listener_t& operator=(const listener_t&) = delete;
    ~listener_t();

    /// Where it listens, with the port that was picked for port 0.
    endpoint_t GetEndpoint() const;

    /// Accepts until `stop` is asked for; then ends the sessions, waits for them and returns. One thread, once.
    void Run(const std::stop_token& stop);

    /// Connections that are open, granted or not yet.
    std::size_t CountConnections() const;

  private:
    struct session_t;
    class admission_t;

    void AcceptOne(const std::stop_token& stop);
    void Serve(posix::unique_fd_t socket, const std::stop_token& stop);
    admission_t Answer(io::binary_stream_tt& stream, const client_hello_t& hello);
    void ReapEnded();

    const listener_options_t options_;
    const session_handler_t handler_;
    posix::unique_fd_t socket_;
    mutable synch::mutex_t mutex_;
    std::list<std::unique_ptr<session_t>> sessions_ GUARDED_BY(mutex_);
    std::size_t granted_ GUARDED_BY(mutex_) = 0;
};

}  // namespace agent::net
