#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>

#include "agent/confine/confine.h"
#include "agent/net/endpoint.h"
#include "agent/net/listener.h"

namespace agent::serve {

/// What holds a server's sessions below its root besides the checks of this program.
enum class EConfinement {
    eKernel,  ///< the kernel: the whole process is confined to the root, for good (see Confine)
    eNone,    ///< nothing; then only loopback addresses are served
};

struct serve_options_t {
    net::endpoint_t endpoint;
    std::string root;  ///< directory that is served; it must exist
    std::size_t maxSessions = 64;
    std::chrono::milliseconds idleTimeout{std::chrono::seconds(120)};
    bool numericOwner = false;
    EConfinement confinement = EConfinement::eKernel;
    std::chrono::seconds keepPartial = std::chrono::hours(7 * 24);  ///< files that may be resumed; 0 keeps none
    std::function<void(const net::session_report_t&)> onSessionEnd;
};

/// A receiving agent for one root. A process has at most one: its working directory becomes the root, and the paths of
/// every session are kept below it by the gate in `CCorvelCtx`. Unless it is told otherwise it confines the process,
/// which sees nothing but the root from then on, also after the server has gone; so make it in a process of its own,
/// first of all, before any thread. Owners' names are looked up by a child process that stays outside.
class server_t {
  public:
    /// Listens, confines the process and enters the root, locks the root's staging folder and clears what an earlier
    /// process left there. Throws what fails, naming root or address; `confine_exc_t` when the process cannot be
    /// confined, after which it should end. Starts no thread.
    explicit server_t(serve_options_t options);
    ~server_t();
    server_t(const server_t&) = delete;
    server_t& operator=(const server_t&) = delete;

    net::endpoint_t GetEndpoint() const;

    /// What holds the process; nothing when it was left unconfined.
    const std::optional<confinement_t>& GetConfinement() const;

    /// Serves until `stop` is asked for, then ends the sessions and returns.
    void Run(const std::stop_token& stop);

  private:
    class impl_t;
    std::unique_ptr<impl_t> impl_;
};

}  // namespace agent::serve
