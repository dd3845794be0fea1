#include "agent/root/confined_root.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "agent/root/list_directory.h"
#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/posix/errno_exc.h"
#include "mirrowen/posix/syscalls.h"

namespace agent {

namespace {

constexpr int kReadDirectory = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

/// The most bytes of a link's content: the kernel's own limit for a path.
constexpr std::size_t kMaxLinkBytes = 4096;

int OpenAt(int dir, const char* name, int flags, mode_t mode = 0) {
    int fd = -1;
    do {
        fd = posix::sys().openat(dir, name, flags | O_CLOEXEC, mode);
    } while (fd < 0 && errno == EINTR);
    return fd;
}

std::optional<struct stat> StatAt(int dir, const std::string& name) {
    struct stat found {};
    if (posix::sys().fstatat(dir, name.c_str(), &found, AT_SYMLINK_NOFOLLOW) != 0) {
        return std::nullopt;
    }
    return found;
}

/// A directory that is held with O_PATH, as one that can be read and synced; none, with errno, when it cannot.
posix::unique_fd_t ReopenDirectory(int dir) {
    return posix::unique_fd_t(OpenAt(dir, ".", kReadDirectory));
}

/// The name split at its last '/'; the first part is empty for a name at the top.
std::pair<std::string_view, std::string_view> SplitLast(std::string_view name) {
    const std::size_t slash = name.rfind('/');
    if (slash == std::string_view::npos) {
        return {{}, name};
    }
    return {name.substr(0, slash), name.substr(slash + 1)};
}

}  // namespace

std::shared_ptr<confined_root_t> confined_root_t::Open(const std::string& path) {
    posix::unique_fd_t top(OpenAt(AT_FDCWD, path.c_str(), O_RDONLY | O_DIRECTORY));
    if (!top) {
        throw posix::errno_exc_t("Failed to open directory [%1]", path, errno);
    }
    return std::make_shared<confined_root_t>(std::move(top), path);
}

confined_root_t::confined_root_t(posix::unique_fd_t top, std::string path, EStagingFolder staging)
    : top_(std::move(top)), path_(std::move(path)), staging_(staging), resolver_(ProbeResolver(top_.get())) {}

std::string confined_root_t::Shown(std::string_view name) const {
    if (path_.empty() || path_ == ".") {
        return std::string(name.empty() ? "." : name);
    }
    if (name.empty()) {
        return path_;
    }
    return path_ + (path_.back() == '/' ? "" : "/") + std::string(name);
}

void confined_root_t::Throw(std::string_view format, std::string_view name, int error) const {
    throw posix::errno_exc_t(format, Shown(name), error);
}

place_t confined_root_t::OpenParent(std::string_view name, EParents parents) const {
    CheckName(name, staging_);
    const auto [directory, last] = SplitLast(name);
    place_t place{OpenDirectoryBeneath(resolver_, top_.get(), directory), std::string(last)};
    if (place.parent) {
        return place;
    }
    if (errno != ENOENT || parents == EParents::eMustExist) {
        Throw("Failed to open the directory of [%1]", name, errno);
    }
    return MakeParents(name, nullptr);
}

confined_root_t::held_place_t confined_root_t::FindPlace(std::string_view name) const {
    if (name.find('/') == std::string_view::npos) {
        CheckName(name, staging_);
        return {{}, top_.get(), std::string(name)};
    }
    place_t place = OpenParent(name);
    const int parent = place.parent.get();
    return {std::move(place.parent), parent, std::move(place.last)};
}

place_t confined_root_t::OpenParent(std::string_view name, std::vector<std::string>& made) const {
    try {
        return OpenParent(name);
    } catch (const posix::errno_exc_t& error) {
        if (error.GetErrno() != ENOENT) {
            throw;
        }
    }
    return MakeParents(name, &made);
}

place_t confined_root_t::MakeParents(std::string_view name, std::vector<std::string>* made) const {
    posix::unique_fd_t reached;
    int current = top_.get();
    std::size_t start = 0;
    for (std::size_t slash = name.find('/'); slash != std::string_view::npos; slash = name.find('/', start)) {
        reached = StepOrMake(current, name.substr(0, slash), start, made);
        current = reached.get();
        start = slash + 1;
    }
    return {std::move(reached), std::string(name.substr(start))};
}

/// One step of the way to `name`, whose last component begins at `start`.
posix::unique_fd_t confined_root_t::StepOrMake(int dir, std::string_view name, std::size_t start,
                                               std::vector<std::string>* made) const {
    const std::string component(name.substr(start));
    posix::unique_fd_t next = StepInto(dir, component.c_str());
    if (!next && errno == ENOENT) {
        if (posix::sys().mkdirat(dir, component.c_str(), 0700) != 0) {
            if (errno != EEXIST) {
                Throw("Failed to create directory [%1]", name, errno);
            }
        } else if (made != nullptr) {
            made->emplace_back(name);
        } else {
            const posix::unique_fd_t holder = ReopenDirectory(dir);
            if (!holder) {
                Throw("Failed to sync [%1]", name, errno);
            }
            SyncDescriptor(holder.get(), Shown(name));
        }
        next = StepInto(dir, component.c_str());
    }
    if (!next) {
        Throw("Failed to open directory [%1]", name, errno);
    }
    return next;
}

std::shared_ptr<posix::posix_file_t> confined_root_t::OpenFile(std::string_view name) const {
    const place_t place = OpenParent(name);
    // Looked at first: opening a device can already do something to it.
    const std::optional<struct stat> before = StatAt(place.parent.get(), place.last);
    if (!before) {
        Throw("Failed to open file [%1]", name, errno);
    }
    struct stat opened = *before;
    posix::unique_fd_t fd;
    if (S_ISREG(before->st_mode)) {
        fd = posix::unique_fd_t(OpenAt(place.parent.get(), place.last.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK));
        if (!fd || posix::sys().fstat(fd.get(), &opened) != 0) {
            Throw("Failed to open file [%1]", name, errno);
        }
    }
    if (!S_ISREG(opened.st_mode)) {
        throw exc::CRuntimeExc("[%1] is not a regular file.", Shown(name));
    }
    return std::make_shared<posix::posix_file_t>(Shown(name), std::move(fd));
}

posix::unique_fd_t confined_root_t::OpenObject(std::string_view name) const {
    const place_t place = OpenParent(name);
    posix::unique_fd_t fd(OpenAt(place.parent.get(), place.last.c_str(), O_PATH | O_NOFOLLOW));
    if (!fd) {
        Throw("Failed to open [%1]", name, errno);
    }
    return fd;
}

posix::unique_fd_t confined_root_t::OpenDirectory(std::string_view name) const {
    const place_t place = OpenParent(name);
    posix::unique_fd_t fd(OpenAt(place.parent.get(), place.last.c_str(), kReadDirectory));
    if (!fd) {
        Throw("Failed to open directory [%1]", name, errno);
    }
    return fd;
}

posix::unique_fd_t confined_root_t::OpenTop() const {
    posix::unique_fd_t fd = ReopenDirectory(top_.get());
    if (!fd) {
        Throw("Failed to open directory [%1]", {}, errno);
    }
    return fd;
}

std::shared_ptr<posix::posix_file_t> confined_root_t::CreateFile(std::string_view name) const {
    const held_place_t place = FindPlace(name);
    posix::unique_fd_t fd(OpenAt(place.parent, place.last.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW, 0600));
    if (!fd) {
        if (errno == EEXIST) {
            ThrowExists(Shown(name));
        }
        Throw("Failed to create file [%1]", name, errno);
    }
    return std::make_shared<posix::posix_file_t>(Shown(name), std::move(fd));
}

void confined_root_t::MakeDirectory(std::string_view name, mode_t mode) const {
    const place_t place = OpenParent(name);
    if (posix::sys().mkdirat(place.parent.get(), place.last.c_str(), mode) != 0) {
        if (errno == EEXIST) {
            ThrowExists(Shown(name));
        }
        Throw("Failed to create directory [%1]", name, errno);
    }
}

void confined_root_t::MakeLink(const std::string& target, std::string_view name) const {
    if (target.find('\0') != std::string::npos) {
        throw exc::CRuntimeExc("The target of link [%1] contains a NUL byte.", Shown(name));
    }
    const held_place_t place = FindPlace(name);
    if (posix::sys().symlinkat(target.c_str(), place.parent, place.last.c_str()) != 0) {
        if (errno == EEXIST) {
            ThrowExists(Shown(name));
        }
        Throw("Failed to create link [%1]", name, errno);
    }
}

struct stat confined_root_t::Stat(std::string_view name) const {
    const held_place_t place = FindPlace(name);
    const std::optional<struct stat> found = StatAt(place.parent, place.last);
    if (!found) {
        Throw("Failed to get attributes of [%1]", name, errno);
    }
    return *found;
}

std::optional<struct stat> confined_root_t::TryStat(std::string_view name) const {
    try {
        return Stat(name);
    } catch (const posix::errno_exc_t& error) {
        if (error.GetErrno() == ENOENT) {
            return std::nullopt;
        }
        throw;
    }
}

std::string confined_root_t::ReadLink(std::string_view name) const {
    const place_t place = OpenParent(name);
    std::string target(kMaxLinkBytes, '\0');
    const ssize_t length =
        posix::sys().readlinkat(place.parent.get(), place.last.c_str(), target.data(), target.size());
    if (length < 0) {
        Throw("Failed to read link [%1]", name, errno);
    }
    target.resize(static_cast<std::size_t>(length));
    return target;
}

std::vector<std::string> confined_root_t::List(std::string_view name, EOrder order) const {
    std::vector<std::string> names = ListDirectory(OpenDirectory(name), Shown(name));
    if (order == EOrder::eSorted) {
        std::sort(names.begin(), names.end());
    }
    return names;
}

std::vector<std::string> confined_root_t::ListTop(EOrder order) const {
    std::vector<std::string> names = ListDirectory(OpenTop(), Shown({}));
    if (staging_ == EStagingFolder::eHidden) {
        std::erase_if(names, [](const std::string& name) { return IsStagingFolder(name); });
    }
    if (order == EOrder::eSorted) {
        std::sort(names.begin(), names.end());
    }
    return names;
}

void confined_root_t::RemoveFile(std::string_view name) const {
    const held_place_t place = FindPlace(name);
    if (posix::sys().unlinkat(place.parent, place.last.c_str(), 0) != 0) {
        Throw("Failed to remove [%1]", name, errno);
    }
}

void confined_root_t::RemoveDirectory(std::string_view name) const {
    const place_t place = OpenParent(name);
    if (posix::sys().unlinkat(place.parent.get(), place.last.c_str(), AT_REMOVEDIR) != 0) {
        Throw("Failed to remove directory [%1]", name, errno);
    }
}

void confined_root_t::Rename(std::string_view from, std::string_view to, EReplace replace) const {
    const place_t source = OpenParent(from);
    const place_t target = OpenParent(to);
    RenameAt(source.parent.get(), source.last, target.parent.get(), target.last, replace, Shown(to));
}

posix::unique_fd_t OpenForSync(const place_t& place, const std::string& shown) {
    posix::unique_fd_t directory = ReopenDirectory(place.parent.get());
    if (!directory) {
        throw posix::errno_exc_t("Failed to open the directory of [%1]", shown, errno);
    }
    return directory;
}

void SyncDescriptor(int fd, const std::string& shown) {
    if (posix::sys().fsync(fd) != 0) {
        throw posix::errno_exc_t("Failed to sync [%1]", shown, errno);
    }
}

}  // namespace agent
