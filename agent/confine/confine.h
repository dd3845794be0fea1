#pragma once

#include <string>

#include "agent/confine/mount_view.h"
#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/posix/unique_fd.h"

namespace agent {

/// What holds a confined process.
struct confinement_t {
    EConfinedBy by = EConfinedBy::ePrivilege;
    int landlock = 0;  ///< version in force, 0: the kernel has none that serves
};

/// The process could not be confined; the cause says why.
class confine_exc_t : public exc::CRuntimeExc {
  public:
    using CRuntimeExc::CRuntimeExc;
    confine_exc_t(const confine_exc_t&) noexcept = default;
    confine_exc_t& operator=(const confine_exc_t&) noexcept = default;
    ~confine_exc_t() override;
};

/// Confines the whole process, for the rest of its life, to one directory and what is mounted below it. `path` is the
/// directory's name for messages.
///
/// What holds afterwards, whatever this program does, be it by a mistake of its own or because a peer got it to:
///  - "/" is that directory. No path leads out: not an absolute one, not "..", not a link planted before or swapped
///    during the call, and not for calls that only read or set attributes either. There is no "/proc", "/dev" or "/etc"
///    unless one lies in the directory.
///  - No descriptor of a directory outside is open; those that were lead to "/dev/null" (see CloseDirectories). Files
///    and sockets that were open stay open.
///  - Where the kernel offers Landlock (version 2 or later): nothing outside is opened, made, removed or renamed even
///  by
///    way of a descriptor or a file handle that the process gets from somewhere; nothing is executed; no device, pipe
///    or socket is made; and with later versions no TCP connection is made and no signal sent to another process
///    (RestrictToDirectory).
///  - Set-user-ID bits and device files below the directory have no effect for the process.
///  - What it may do below is what its user may do. With EConfinedBy::ePrivilege it keeps CAP_CHOWN, CAP_DAC_OVERRIDE,
///    CAP_FOWNER, CAP_FSETID and CAP_SETFCAP as far as it had them, else nothing; in a user namespace nothing. So no
///    mounting, no tracing, no devices, no "trusted." attributes and of the "security." ones file capabilities only.
///    Nothing that it could start would get more.
///
/// What does not: the process reads and writes everything below the directory, it can use up space, memory and time,
/// and its network sockets reach whom they reach.
///
/// What the program opens lazily is fetched before (PrepareRuntime). What it needs of the host later must be asked of a
/// process that stays outside (names_helper_t), and started before.
///
/// Throws confine_exc_t "Failed to confine the process to [%1]." with the cause: it has more than one thread, or the
/// host allows neither. The process may then be half way and should end. On the main thread, once.
confinement_t Confine(posix::unique_fd_t directory, const std::string& path);

}  // namespace agent
