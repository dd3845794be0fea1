#pragma once

#include <string>

namespace agent {

/// Whether something that is already there may make way.
enum class EReplace { eNo, eYes };

/// Renames `from` in directory `fromDir` to `to` in directory `toDir`; both names are single components and `shown` is
/// the target as messages name it.
///
/// With `eYes` a file or link at the target is replaced in one step, a directory only by a directory and only when it
/// is empty. With `eNo` nothing is ever replaced: what is there is `exc::CAlreadyExistsExc` "[%1] exists already.". On
/// a file system without RENAME_NOREPLACE a file or link is linked to its new name and then removed under the old one,
/// which replaces nothing either. Other failures: `posix::errno_exc_t` "Failed to rename to [%1]".
void RenameAt(int fromDir, const std::string& from, int toDir, const std::string& to, EReplace replace,
              const std::string& shown);

/// Throws `exc::CAlreadyExistsExc` "[%1] exists already.".
[[noreturn]] void ThrowExists(const std::string& shown);

}  // namespace agent
