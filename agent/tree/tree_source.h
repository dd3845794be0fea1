#pragma once

#include <optional>
#include <string>
#include <vector>

#include "agent/tree/object_brief.h"

namespace agent {

/// One object of a tree.
struct tree_entry_t {
    std::string name;  ///< below the root of the tree; empty for the root itself
    object_brief_t brief;
    std::string fault;  ///< why the object could not be examined, `brief` says nothing then; empty for a good entry
};

/// A tree that can be looked through: a directory of this machine, or one behind a receiving agent. Names are bytes,
/// relative to the root, components separated by '/'; the empty name is the root. No link is followed, neither at the
/// end of a name nor among its parents, so nothing that is swapped meanwhile leads out of the tree. One thread.
class tree_source_t {
  public:
    virtual ~tree_source_t();

    /// `name` as messages show it.
    virtual std::string Shown(const std::string& name) const = 0;

    /// What lies at `name`; nothing when it is not there or cannot be reached. Throws what kept it from being examined,
    /// naming it; the entry's `fault` is always empty.
    virtual std::optional<tree_entry_t> TryExamine(const std::string& name) = 0;

    /// Everything in the directory `directory`, with full names, sorted byte by byte. An object that cannot be examined
    /// is there with a `fault`. The whole directory is in memory. Throws when the directory cannot be listed.
    virtual std::vector<tree_entry_t> List(const std::string& directory) = 0;
};

}  // namespace agent
