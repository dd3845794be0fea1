#pragma once

#include <memory>
#include <optional>

#include "agent/confine/confine.h"
#include "agent/confine/names_helper.h"
#include "agent/root/confined_root.h"
#include "agent/serve/serve.h"
#include "mirrowen/posix/unique_fd.h"

namespace agent::serve {

/// What a server gets hold of before it is one, in the only order that works: the socket, since an address may be a
/// name to be looked up; the helper that will look up owners; the confinement, if it is asked for; the root, opened
/// anew, since a descriptor from before would lead out. Starts no thread. Made once; lives as long as the sessions.
class launch_t {
  public:
    /// Throws what `net::Listen`, names_helper_t and Confine throw, or "Failed to open directory [%1]" for the root.
    explicit launch_t(const serve_options_t& options);
    launch_t(const launch_t&) = delete;
    launch_t& operator=(const launch_t&) = delete;

    /// The root without a name: where it lies is nothing to a peer, so messages show only what lies below.
    const std::shared_ptr<const confined_root_t>& GetRoot() const noexcept { return root_; }
    /// Nothing when the process was left unconfined.
    const std::optional<confinement_t>& GetConfinement() const noexcept { return confinement_; }
    /// Whether files can be given to any owner (see CanGiveAnyOwner).
    bool GivesAnyOwner() const noexcept { return givesAnyOwner_; }
    /// The listening socket; to be taken once.
    posix::unique_fd_t TakeSocket() noexcept { return std::move(socket_); }

  private:
    posix::unique_fd_t socket_;
    std::unique_ptr<names_helper_t> names_;
    bool givesAnyOwner_ = false;
    std::optional<confinement_t> confinement_;
    std::shared_ptr<const confined_root_t> root_;
};

}  // namespace agent::serve
