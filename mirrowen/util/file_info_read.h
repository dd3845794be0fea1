#pragma once

#include <string>

#include "mirrowen/export.h"
#include "mirrowen/util/file_info.h"
#include "mirrowen/util/meta_problem.h"

/// Reading a file's attributes through descriptors, for those who hold a tree open and must not be led elsewhere by a
/// name that changes under them. Any thread. Owner and group names come from `util::user_names()`.
namespace util {

/// The attributes of the open file `fd` (a real descriptor, not O_PATH). `path` names it in errors and problems only.
/// Extended attributes that cannot be read, or that a file info cannot hold, are left out and appended to `problems`.
/// Throws `posix::errno_exc_t` "Failed to get attributes of [%1]".
MIRROWEN_API CFileInfo ReadFromDescriptor(int fd, const std::string& path, meta_problems_t& problems);

/// The attributes of `name` in the directory `dirFd`, links not followed. For links and special files, which cannot be
/// opened harmlessly; extended attributes are not read, since the kernel offers no way to them from a directory's
/// descriptor. Throws `posix::errno_exc_t` "Failed to get attributes of [%1]".
MIRROWEN_API CFileInfo ReadLinkInfo(int dirFd, const std::string& name);

/// As ReadFromDescriptor, by path; `CFileInfo::getInfoForFile` is this with the problems in the log.
MIRROWEN_API CFileInfo ReadFromPath(const std::string& path, bool followLinks, meta_problems_t& problems);

}  // namespace util
