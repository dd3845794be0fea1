#pragma once

namespace agent {

/// Takes every directory that is open in this process away from whoever holds it: the descriptor stays, but leads to
/// "/dev/null". From a directory's descriptor any path can be followed, whatever the process's root is. Reads
/// "/proc/self/fd". Throws `posix::errno_exc_t` "Failed to close directories listed in [%1]".
void CloseDirectories();

}  // namespace agent
