#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "agent/root/confined_root.h"
#include "agent/tree/entry_kind.h"
#include "mirrowen/util/file_info.h"

namespace agent {

/// What is known of an object without opening it: enough to tell whether it is the one that somebody would put there.
struct object_brief_t {
    EEntryKind kind = EEntryKind::eFile;
    std::uint32_t mode = 0;  ///< permission bits with setuid, setgid and sticky (07777)
    std::uint64_t size = 0;  ///< bytes of a file's content; the system's value for the other kinds
    util::SFileTime modificationTime;
    util::SPrincipal owner;
    util::SPrincipal group;
    std::uint64_t device = 0;  ///< together with `inode`: one object under several names has one pair
    std::uint64_t inode = 0;
    std::uint64_t links = 0;  ///< how many names the object has
    std::string target;       ///< what a link holds

    friend bool operator==(const object_brief_t&, const object_brief_t&) = default;
};

/// What the system tells of an object, without a link's target. Names of owner and group come from
/// `util::user_names()`. Any thread.
object_brief_t BriefOf(const struct stat& found);

/// What is at `name` below the root, a link itself and not what it points to; an empty `name` is the root. Nothing when
/// nothing is there or it cannot be reached as a name (a link or a file is among its parents). The attributes and the
/// target are those of one and the same object, whoever swaps it meanwhile. A name that may not be asked for throws as
/// CheckName does; otherwise `posix::errno_exc_t` as of `confined_root_t::OpenObject`, "Failed to get attributes of
/// [%1]" and "Failed to read link [%1]". Any thread.
std::optional<object_brief_t> Examine(const confined_root_t& root, const std::string& name);

}  // namespace agent
