#include "agent/staging/place_item.h"

#include <fcntl.h>

#include <cerrno>
#include <string>
#include <vector>

#include "agent/meta/item_meta.h"
#include "mirrowen/posix/errno_exc.h"
#include "mirrowen/posix/syscalls.h"

namespace agent {

namespace {

bool IsDirectory(const place_t& place, const std::string& shown) {
    struct stat found {};
    if (posix::sys().fstatat(place.parent.get(), place.last.c_str(), &found, AT_SYMLINK_NOFOLLOW) != 0) {
        throw posix::errno_exc_t("Failed to get attributes of [%1]", shown, errno);
    }
    return S_ISDIR(found.st_mode);
}

void MakeOrMerge(const place_t& place, EReplace replace, const std::string& shown) {
    const auto make = [&] { return posix::sys().mkdirat(place.parent.get(), place.last.c_str(), 0700) == 0; };
    if (make()) {
        return;
    }
    if (errno != EEXIST) {
        throw posix::errno_exc_t("Failed to create directory [%1]", shown, errno);
    }
    if (IsDirectory(place, shown)) {
        return;
    }
    if (replace == EReplace::eNo) {
        ThrowExists(shown);
    }
    // No call exchanges a file for a directory that is not there yet; a directory that came meanwhile is not removed.
    if (posix::sys().unlinkat(place.parent.get(), place.last.c_str(), 0) != 0 || !make()) {
        throw posix::errno_exc_t("Failed to replace [%1]", shown, errno);
    }
}

}  // namespace

void PlaceDirectory(const confined_root_t& root, const item_t& item, EReplace replace, ESync sync,
                    const std::shared_ptr<item_warnings_t>& warnings, touched_directories_t& touched,
                    std::uint64_t number) {
    const std::string shown = root.Shown(item.path);
    std::vector<std::string> made;
    const place_t place = root.OpenParent(item.path, made);
    touched.Add(item.path, made, number);
    MakeOrMerge(place, replace, shown);
    constexpr int flags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
    const posix::unique_fd_t directory(posix::sys().openat(place.parent.get(), place.last.c_str(), flags, 0));
    if (!directory) {
        throw posix::errno_exc_t("Failed to open directory [%1]", shown, errno);
    }
    ApplyMeta(directory.get(), item.info, shown, warnings);
    if (sync == ESync::eYes) {
        // Now or never: with its own mode it may be closed to us. Its contents came before it.
        SyncDescriptor(directory.get(), shown);
        touched.Forget(item.path);
    }
}

void PlaceHardLink(const std::shared_ptr<staging_t>& staging, const item_t& item, EReplace replace,
                   touched_directories_t& touched, std::uint64_t number) {
    const confined_root_t& root = staging->GetRoot();
    staged_entry_t entry(staging);
    const int folder = staging->GetFolder().GetDescriptor();
    const place_t first = root.OpenParent(item.second);
    if (posix::sys().linkat(first.parent.get(), first.last.c_str(), folder, entry.GetName().c_str(), 0) != 0) {
        throw posix::errno_exc_t("Failed to link to [%1]", root.Shown(item.second), errno);
    }
    entry.Commit(item.path, replace, touched, number);
    // A rename between two names of one file does nothing.
    posix::sys().unlinkat(folder, entry.GetName().c_str(), 0);
}

}  // namespace agent
