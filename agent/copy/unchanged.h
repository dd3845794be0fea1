#pragma once

#include "agent/tree/object_brief.h"

namespace agent::copy {

/// What has to be equal for an object to count as unchanged.
struct sameness_t {
    bool owners = true;         ///< owner and group; not where the receiver cannot set them
    bool numericOwner = false;  ///< owners are what their numbers say, not their names
    bool fileTimes = true;      ///< the times of files; not where contents are compared instead
};

/// Whether a copy of `ours` over `theirs` would change nothing: both are of one kind and have the same modification
/// time, owner and group, a file and a directory the same mode, a file the same size, a link the same content. An owner
/// whose name is not known here or there is compared by number.
bool IsUnchanged(const object_brief_t& ours, const object_brief_t& theirs, const sameness_t& rules);

}  // namespace agent::copy
