#pragma once

#include <sys/types.h>

#include <memory>

#include "agent/confine/names_client.h"
#include "mirrowen/util/name_service.h"
#include "mirrowen/util/remembering_user_names.h"

namespace agent {

/// A child process that looks up owners' names and numbers for a process that is about to lose sight of the host's
/// account databases, and the client that asks it, in force as `util::user_names()` for the life of this object.
/// Answers are remembered for half a minute.
///
/// The child is a fork of the caller: made while there is one thread and before anything is confined. It keeps a socket
/// pair and the standard error of the caller and closes everything else, works in "/", has no capability and cannot get
/// any, and does not hear SIGINT, SIGTERM and SIGHUP, which end the caller and through that the child. It does nothing
/// but read questions of bounded length and call the service that was in force. It ends with this object, and when the
/// caller dies however that happens.
///
/// Owners are looked up from any thread; made and destroyed on one.
class names_helper_t {
  public:
    /// Throws `posix::errno_exc_t` "Failed to start a process for [%1]".
    names_helper_t();
    /// Ends the child and waits a moment for it; one that hangs in a look-up dies with this process.
    ~names_helper_t();
    names_helper_t(const names_helper_t&) = delete;
    names_helper_t& operator=(const names_helper_t&) = delete;

    pid_t GetProcess() const noexcept { return child_; }

  private:
    pid_t child_ = -1;
    std::unique_ptr<names_client_t> client_;
    std::unique_ptr<util::remembering_user_names_t> memory_;
    std::unique_ptr<util::scoped_user_names_t> scope_;
};

}  // namespace agent
