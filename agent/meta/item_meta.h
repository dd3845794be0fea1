#pragma once

#include <memory>
#include <string>

#include "agent/meta/item_warnings.h"
#include "mirrowen/util/file_info.h"

/// Attributes of items, read for sending and applied on arrival, by descriptor only: no name is looked up again, so
/// nothing that is swapped meanwhile is read or changed. `shown` names the object in messages. What lacks privilege, an
/// owner here or support is a warning (see Report) and the item goes on; anything else throws. Any thread.
namespace agent {

/// The attributes of the open file or directory `fd` (not O_PATH). Throws `posix::errno_exc_t` "Failed to get
/// attributes of [%1]"; `exc::CRuntimeExc` "Failed to read the attributes of [%1]: %2." for an extended attribute that
/// fails for another reason than the above.
util::CFileInfo ReadMeta(int fd, const std::string& shown, const std::shared_ptr<item_warnings_t>& warnings);

/// The attributes of the link (or other object) `name` in the directory `dirFd`, not followed; extended attributes are
/// not read. Throws `posix::errno_exc_t` "Failed to get attributes of [%1]".
util::CFileInfo ReadLinkMeta(int dirFd, const std::string& name);

/// Whether an object may have got access-control lists from the directory in which it was made.
enum class EInherited { eNothing, ePerhaps };

/// What a new file in the directory `dirFd` (not O_PATH) gets from it.
EInherited FindInherited(int dirFd);

/// Applies owner, extended attributes, mode and times to the open file or directory `fd` (not O_PATH) in this order, as
/// far as it goes. Access-control lists that it may have inherited and that `info` has not are removed. What is left
/// and is no mere warning throws `exc::CRuntimeExc` "Failed to apply the attributes of [%1]: %2." after everything was
/// tried.
void ApplyMeta(int fd, const util::CFileInfo& info, const std::string& shown,
               const std::shared_ptr<item_warnings_t>& warnings, EInherited inherited = EInherited::ePerhaps);

/// Applies owner and times to the link `name` in the directory `dirFd`. Errors as for ApplyMeta.
void ApplyLinkMeta(int dirFd, const std::string& name, const util::CFileInfo& info, const std::string& shown,
                   const std::shared_ptr<item_warnings_t>& warnings);

}  // namespace agent
