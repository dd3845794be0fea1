#pragma once

#include <string>
#include <vector>

#include "mirrowen/export.h"

namespace util {

/// Why a part of a file's attributes could not be read or applied.
enum class EMetaProblem {
    eNoPrivilege,  ///< the process may not do it
    eNoOwner,      ///< the owner or group does not exist here
    eUnsupported,  ///< the file system, or this way to the file, has no such attribute
    eOther,        ///< anything else; the target is in doubt
};

/// One part that failed.
struct SMetaProblem {
    std::string what;  ///< "owner", "mode", "times", "extended attribute [user.x]" ...
    std::string path;
    int error = 0;  ///< errno; 0 when the part was done in another way (an owner by number)
    EMetaProblem kind = EMetaProblem::eOther;
};

using meta_problems_t = std::vector<SMetaProblem>;

/// "Failed to set owner of [/a/b]: Operation not permitted": the problem as a line, `verb` being "set" or "get".
MIRROWEN_API std::string DescribeMetaProblem(const SMetaProblem& problem, const std::string& verb);

/// The kind that an errno stands for when nothing more is known.
MIRROWEN_API EMetaProblem ClassifyMetaErrno(int error) noexcept;

}  // namespace util
