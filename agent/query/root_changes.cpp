#include "agent/query/root_changes.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <optional>

#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/posix/errno_exc.h"
#include "mirrowen/posix/syscalls.h"

namespace agent::query {

namespace {

/// What the process's own mask leaves of it.
constexpr mode_t kNewDirectory = 0777;

/// The directory of a name, held to work in it and to sync it. Both are opened before anything is changed: what cannot
/// be made durable is not begun.
struct held_place_t {
    held_place_t(const confined_root_t& root, const std::string& name)
        : shown(root.Shown(name)), place(root.OpenParent(name)), directory(OpenForSync(place, shown)) {}

    int Parent() const { return place.parent.get(); }
    const char* Last() const { return place.last.c_str(); }
    void Sync() const { SyncDescriptor(directory.get(), shown); }

    std::optional<struct stat> Look() const {
        struct stat found {};
        if (posix::sys().fstatat(Parent(), Last(), &found, AT_SYMLINK_NOFOLLOW) != 0) {
            return std::nullopt;
        }
        return found;
    }

    const std::string shown;
    const place_t place;
    const posix::unique_fd_t directory;
};

void RefuseSameFile(const held_place_t& source, const held_place_t& target) {
    const std::optional<struct stat> first = source.Look();
    const std::optional<struct stat> second = target.Look();
    if (first && second && first->st_dev == second->st_dev && first->st_ino == second->st_ino) {
        throw exc::CRuntimeExc("[%1] and [%2] are the same file.", source.shown, target.shown);
    }
}

}  // namespace

void RemoveObject(const confined_root_t& root, const std::string& name) {
    const held_place_t held(root, name);
    int result = posix::sys().unlinkat(held.Parent(), held.Last(), 0);
    if (result != 0 && errno == EISDIR) {
        result = posix::sys().unlinkat(held.Parent(), held.Last(), AT_REMOVEDIR);
    }
    if (result != 0) {
        throw posix::errno_exc_t("Failed to remove [%1]", held.shown, errno);
    }
    held.Sync();
}

void MakeDirectory(const confined_root_t& root, const std::string& name) {
    const held_place_t held(root, name);
    if (posix::sys().mkdirat(held.Parent(), held.Last(), kNewDirectory) != 0) {
        if (errno == EEXIST) {
            ThrowExists(held.shown);
        }
        throw posix::errno_exc_t("Failed to create directory [%1]", held.shown, errno);
    }
    held.Sync();
}

void MoveObject(const confined_root_t& root, const std::string& from, const std::string& to, EReplace replace) {
    const held_place_t source(root, from);
    if (to.size() > from.size() && to.starts_with(from) && to[from.size()] == '/') {
        throw exc::CRuntimeExc("[%1] cannot be moved into itself.", source.shown);
    }
    const held_place_t target(root, to);
    if (!source.Look()) {
        throw posix::errno_exc_t("Failed to move [%1]", source.shown, errno);
    }
    if (replace == EReplace::eYes) {
        RefuseSameFile(source, target);
    }
    RenameAt(source.Parent(), source.place.last, target.Parent(), target.place.last, replace, target.shown);
    target.Sync();
    source.Sync();
}

}  // namespace agent::query
