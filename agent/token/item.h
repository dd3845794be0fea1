#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "mirrowen/guid/guid.h"
#include "mirrowen/util/file_info.h"

namespace agent {

/// What an item makes on the receiving side. The numbers stand in the serial form.
enum class EItemKind : std::uint32_t {
    eFile = 1,
    eDirectory = 2,
    eLink = 3,
    eHardLink = 4,
    eCommit = 5,
};

/// "file", "directory", "link", "hard link", "commit"; "unknown" for another number.
std::string_view NameOfKind(EItemKind kind) noexcept;

/// One item of a tree as it travels from agent to agent. A value.
struct item_t {
    EItemKind kind = EItemKind::eFile;
    guid::guid_t copy;              ///< the copy (one run over one tree) that the item belongs to
    std::string path;               ///< where it goes, relative to the receiver's root; bytes
    std::string second;             ///< a link's content, a hard link's first name; empty for the other kinds
    std::uint64_t startOffset = 0;  ///< where in the file the sent bytes begin
    /// The item's number in its group, from 0, when it is deferred; how many entries the group must have, for a commit.
    std::uint64_t entry = 0;
    bool deferred = false;   ///< it becomes visible only with the commit of its copy
    bool unsynced = false;   ///< nobody waits for the storage; a commit says it for its whole group
    bool resumable = false;  ///< of a file, what came is kept when the session breaks off
    util::CFileInfo info;    ///< attributes to apply; unset for none
};

/// Throws `exc::CRuntimeExc` "Invalid item [%1]: %2." unless the parts fit together: `path` is there (only a commit
/// goes without) and neither text is longer than a name may be or holds a NUL; a link and a hard link have a second
/// text and the others have none; only a file starts anywhere but at 0 or is resumable; only a deferred item and a
/// commit have an entry number; a commit is not deferred; attributes are those of an object of the kind.
/// Whether the path may be used below a root is judged where it is used.
void CheckItem(const item_t& item);

}  // namespace agent
