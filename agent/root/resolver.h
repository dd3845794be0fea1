#pragma once

#include <string_view>

#include "mirrowen/posix/unique_fd.h"

namespace agent {

/// How directories below a held descriptor are found. Both ways follow no link at all, not even one that stays inside:
/// a link that leads into the staging folder, or that is swapped between two steps, is as bad as one that leads out.
enum class EResolver {
    eKernel,  ///< one openat2(2) with RESOLVE_BENEATH and RESOLVE_NO_SYMLINKS
    eWalk,    ///< component by component with O_NOFOLLOW, for kernels or sandboxes without openat2
};

/// Asks the kernel, once a root.
EResolver ProbeResolver(int top) noexcept;

/// Opens the directory `name` below `top` (O_PATH, close-on-exec); an empty `name` is `top` itself. `name` has passed
/// CheckName. Returns none with errno set: ELOOP for a link on the way, ENOTDIR for something else that is no
/// directory, and open(2)'s others.
posix::unique_fd_t OpenDirectoryBeneath(EResolver resolver, int top, std::string_view name);

/// One step of the walk: the directory `component` in `dir`, never through a link. Results as above.
posix::unique_fd_t StepInto(int dir, const char* component);

}  // namespace agent
