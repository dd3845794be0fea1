#pragma once

#include <functional>
#include <string>

#include "agent/tree/tree_source.h"

namespace agent {

struct list_options_t {
    bool recursive = false;
    /// Wildcard masks of which a name has to match one, "*.txt; *.log"; letter case does not matter. Directories are
    /// looked into whether their own names match or not. See `tarn::lindir::lin_dir_enum::GenerateNewRegexMask` for
    /// what means what; a mask that cannot be understood throws.
    std::string mask;
};

/// Tells what lies in the directory `top`, in byte order, with everything below it when asked for: a directory before
/// what is in it, not `top` itself. When `top` is something else, that alone is told. No link is followed. What cannot
/// be examined or listed is told with a `fault`; a directory that was told already is told again then. Throws when
/// `top` is not there or cannot be listed.
void ListTree(tree_source_t& tree, const std::string& top, const list_options_t& options,
              const std::function<void(const tree_entry_t&)>& tell);

}  // namespace agent
