#pragma once

#include <string>

#include "mirrowen/export.h"
#include "mirrowen/util/file_info.h"
#include "mirrowen/util/meta_problem.h"

/// Applying a file's attributes. All functions go as far as they can and report each part that failed; the caller
/// decides which problems it can live with. None throws for what the target refuses. Any thread.
///
/// The order is owner, extended attributes (access-control lists among them), mode, times: a new owner makes the kernel
/// drop the set-user-ID bit and file capabilities, a list changes the mode's group bits, and everything changes times.
/// When owner or group could not be set, the set-user-ID and set-group-ID bits of a file are left out, since they would
/// grant somebody else's rights; that is reported as a problem of its own.
namespace util {

enum class EOwnerSource {
    eNameFirst,  ///< the owner of that name here; its number when there is no such name (reported, with error 0)
    eNumber,     ///< the number, whatever the name
};

struct apply_options_t {
    EOwnerSource owner = EOwnerSource::eNameFirst;
    /// Removes extended attributes that the info does not have; for a target that was there before, or that may have
    /// inherited an access-control list.
    bool removeOtherAttributes = false;
};

struct apply_result_t {
    meta_problems_t problems;
    bool IsComplete() const noexcept { return problems.empty(); }
};

/// Applies `info` to the open file or directory `fd` (a real descriptor, not O_PATH). `path` names it in problems only.
/// An info of a link does not fit and is refused as one problem with ELOOP. An unset info changes nothing.
MIRROWEN_API apply_result_t ApplyToDescriptor(int fd, const std::string& path, const CFileInfo& info,
                                              const apply_options_t& options = {});

/// Applies `info` to the link (or special file) `name` in the directory `dirFd`, nothing followed. Links have no mode
/// of their own, so theirs is left out. Extended attributes are applied when `dirFd` is AT_FDCWD; in another directory
/// the kernel offers no way to them, and each is reported as unsupported.
MIRROWEN_API apply_result_t ApplyToLink(int dirFd, const std::string& name, const CFileInfo& info,
                                        const apply_options_t& options = {});

/// Applies `info` to what is at `path`, links not followed, special files not opened. `CFileInfo::applyMetaForFile` is
/// this with an exception at the end.
MIRROWEN_API apply_result_t ApplyToPath(const std::string& path, const CFileInfo& info,
                                        const apply_options_t& options = {});

}  // namespace util
