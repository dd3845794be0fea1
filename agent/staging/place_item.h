#pragma once

#include <cstdint>
#include <memory>

#include "agent/meta/item_warnings.h"
#include "agent/staging/staged_entry.h"
#include "agent/staging/staging.h"
#include "agent/staging/touched_directories.h"
#include "agent/token/item.h"

/// How the items that are not staged come to be: at once, or as entries of a group.
namespace agent {

/// Makes the directory when it is missing (parents with mode 0700) and applies the item's attributes; one that is there
/// keeps its contents. Something else at the path, a link to a directory included, is `exc::CAlreadyExistsExc` "[%1]
/// exists already."; with `EReplace::eYes` it is removed and makes way. With `ESync::eYes` the directory itself is
/// durable afterwards; its own entry is noted in `touched`. Other errors: "Failed to create directory [%1]", "Failed to
/// replace [%1]", "Failed to open directory [%1]", those of ApplyMeta, "Failed to sync [%1]".
void PlaceDirectory(const confined_root_t& root, const item_t& item, EReplace replace, ESync sync,
                    const std::shared_ptr<item_warnings_t>& warnings, touched_directories_t& touched,
                    std::uint64_t number);

/// Gives the file at the item's second path a further name, the item's path; a link there is not followed but gets the
/// name itself. What is at the path is replaced or kept as `staged_entry_t::Commit` says; that it is the same file
/// already is fine where it may be replaced. Throws "Failed to link to [%1]" and the errors of the commit.
void PlaceHardLink(const std::shared_ptr<staging_t>& staging, const item_t& item, EReplace replace,
                   touched_directories_t& touched, std::uint64_t number);

}  // namespace agent
