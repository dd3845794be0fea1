#pragma once

#include <memory>
#include <string>

#include "agent/root/confined_root.h"

namespace agent {

/// A host path as the start of a walk: the directory that holds the object is held open, and everything from there on
/// is found without following a link.
struct opened_place_t {
    std::shared_ptr<const confined_root_t> root;
    std::string top;       ///< the object below `root`; empty for `root` itself
    std::string baseName;  ///< the object's name as the path ends; empty for ".", ".." and "/"
};

/// Opens the place that a person named: links on the way to the object are followed, the object itself is not, unless
/// the path ends in '/'. Throws `posix::errno_exc_t` naming the path when there is nothing.
opened_place_t OpenPlace(const std::string& path);

/// The directory at `path`, links followed, as a root in which no name is special to a reader, not the staging folder's
/// either. Throws `posix::errno_exc_t` "Failed to open directory [%1]".
std::shared_ptr<const confined_root_t> OpenPlainRoot(const std::string& path);

}  // namespace agent
