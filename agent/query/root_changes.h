#pragma once

#include <string>

#include "agent/root/confined_root.h"
#include "agent/root/rename_at.h"

/// Changes of single names below a root on somebody's word: each is one step that is done or not done, follows no link,
/// and is on the storage when the function returns. A name that may not be used throws as CheckName does; the other
/// errors are `posix::errno_exc_t` with the text given, "Failed to open the directory of [%1]" and "Failed to sync
/// [%1]". Any thread.
namespace agent::query {

/// Removes a file, a link (never what it points to) or an empty directory. "Failed to remove [%1]".
void RemoveObject(const confined_root_t& root, const std::string& name);

/// Makes a directory with the permissions that the process gives new ones; its parent must be there. "Failed to create
/// directory [%1]"; `exc::CAlreadyExistsExc` "[%1] exists already.".
void MakeDirectory(const confined_root_t& root, const std::string& name);

/// Gives an object another name; the new name's parent must be there. `replace` is as for RenameAt, with its errors;
/// `exc::CRuntimeExc` "[%1] cannot be moved into itself." and "[%1] and [%2] are the same file.", which has two names
/// already and would keep both.
void MoveObject(const confined_root_t& root, const std::string& from, const std::string& to, EReplace replace);

}  // namespace agent::query
