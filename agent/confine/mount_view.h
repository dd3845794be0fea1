#pragma once

namespace agent {

/// By what right a process got a view of the mounts that is its own.
enum class EConfinedBy {
    ePrivilege,      ///< its own (CAP_SYS_ADMIN): numbers of owners mean what they mean outside
    eUserNamespace,  ///< a user namespace that knows no owner but this process's own user and group
};

/// Gives the process a mount namespace of its own: with CAP_SYS_ADMIN directly, otherwise inside a new user namespace,
/// in which its user and group keep their numbers, every other owner reads as 65534, supplementary groups go on
/// granting access but cannot be given to files, and all capabilities concern the namespace only. What is mounted or
/// unmounted outside later happens inside as well, never the other way round. The working directory stays.
///
/// The process must have one thread: `exc::CRuntimeExc` "The process has more than one thread.". Otherwise throws
/// `posix::errno_exc_t` "Failed to make a [%1] namespace" (EPERM, ENOSPC, ... where the host forbids it) or "Failed to
/// set up the [%1] namespace", after which the process may be half way and should end.
EConfinedBy LeaveMountNamespace();

/// Makes the working directory the root of everything that can be seen, with all that is mounted below it, and lets go
/// of the rest: the old root is unmounted from the namespace, no path and no ".." leads to it. Set-user-ID bits and
/// device files below have no effect for the process and nothing there can be executed. The working directory is "/"
/// afterwards. Descriptors of directories that were open before still lead out, so there should be none.
///
/// Needs LeaveMountNamespace before. Throws `posix::errno_exc_t` "Failed to make the root of the [%1] namespace".
void EnterWorkingDirectory();

}  // namespace agent
