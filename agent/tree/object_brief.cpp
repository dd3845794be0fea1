#include "agent/tree/object_brief.h"

#include <cerrno>
#include <utility>

#include "mirrowen/posix/errno_exc.h"
#include "mirrowen/posix/syscalls.h"
#include "mirrowen/util/name_service.h"

namespace agent {

namespace {

/// The most bytes of a link's content: the kernel's own limit for a path.
constexpr std::size_t kMaxLinkBytes = 4096;

bool IsUnreachable(int error) {
    return error == ENOENT || error == ENOTDIR || error == ELOOP;
}

// A name that no record could carry counts as unknown; the number stands for it.
util::SPrincipal Principal(std::string name, std::uint32_t id) {
    return {name.size() <= util::kMaxPrincipalName ? std::move(name) : std::string(), id};
}

std::string ReadTarget(int link, const std::string& shown) {
    std::string target(kMaxLinkBytes, '\0');
    const ssize_t length = posix::sys().readlinkat(link, "", target.data(), target.size());
    if (length < 0) {
        throw posix::errno_exc_t("Failed to read link [%1]", shown, errno);
    }
    target.resize(static_cast<std::size_t>(length));
    return target;
}

/// Everything is asked of the object that is held, so nothing that is swapped in meanwhile mixes with it.
object_brief_t BriefOfHeld(int held, const std::string& shown) {
    struct stat found {};
    if (posix::sys().fstat(held, &found) != 0) {
        throw posix::errno_exc_t("Failed to get attributes of [%1]", shown, errno);
    }
    object_brief_t brief = BriefOf(found);
    if (brief.kind == EEntryKind::eLink) {
        brief.target = ReadTarget(held, shown);
    }
    return brief;
}

}  // namespace

object_brief_t BriefOf(const struct stat& found) {
    object_brief_t brief;
    brief.kind = KindOf(found.st_mode);
    brief.mode = found.st_mode & 07777U;
    brief.size = static_cast<std::uint64_t>(found.st_size);
    brief.modificationTime = {found.st_mtim.tv_sec, static_cast<std::uint32_t>(found.st_mtim.tv_nsec)};
    brief.owner = Principal(util::user_names().GetUserName(found.st_uid), found.st_uid);
    brief.group = Principal(util::user_names().GetGroupName(found.st_gid), found.st_gid);
    brief.device = found.st_dev;
    brief.inode = found.st_ino;
    brief.links = found.st_nlink;
    return brief;
}

std::optional<object_brief_t> Examine(const confined_root_t& root, const std::string& name) {
    if (name.empty()) {
        return BriefOfHeld(root.GetDescriptor(), root.Shown(name));
    }
    posix::unique_fd_t held;
    try {
        held = root.OpenObject(name);
    } catch (const posix::errno_exc_t& error) {
        if (IsUnreachable(error.GetErrno())) {
            return std::nullopt;
        }
        throw;
    }
    return BriefOfHeld(held.get(), root.Shown(name));
}

}  // namespace agent
