#pragma once

namespace agent {

/// The version of Landlock that the kernel offers (landlock(7)); 0 when it has none or has it switched off.
int LandlockVersion() noexcept;

/// From now on the calling thread, and those that it starts later, touch files and directories below `directory` only,
/// whatever descriptors or privileges they get hold of, and there do nothing but what keeping a tree takes: read, list,
/// write, truncate, remove, rename, link, make files, directories and symbolic links. Executing, and making devices,
/// pipes and sockets, are denied everywhere. Further, as far as the kernel knows it: TCP sockets are neither bound nor
/// connected (those that listen already go on), no control call reaches a device, and no signal or connection to an
/// abstract socket leaves the process. Descriptors that are open keep what they could do.
///
/// Metadata calls on what can be reached by a path (stat, chmod, chown, utimes, extended attributes) are not covered by
/// Landlock; that is why it stands on top of a mount namespace and not in its place.
///
/// Takes PR_SET_NO_NEW_PRIVS or CAP_SYS_ADMIN. Returns the version in force: LandlockVersion(), or 0, with nothing
/// done, below version 2, which cannot let a file be renamed from one directory to another. Throws `posix::errno_exc_t`
/// "Failed to apply [%1]".
int RestrictToDirectory(int directory);

}  // namespace agent
