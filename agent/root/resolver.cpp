#include "agent/root/resolver.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdint>
#include <string>
#include <utility>

#include "mirrowen/posix/syscalls.h"

namespace agent {

namespace {

constexpr int kDirectoryFlags = O_PATH | O_DIRECTORY | O_CLOEXEC;
constexpr std::uint64_t kBeneath = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS | RESOLVE_NO_MAGICLINKS;

/// The kernel answers EAGAIN when a rename anywhere may have disturbed the resolution; it asks to be tried again.
constexpr int kMaxTries = 128;

posix::unique_fd_t OpenByKernel(int top, const char* name) {
    int fd = -1;
    for (int tries = 0; tries < kMaxTries; ++tries) {
        fd = posix::sys().openat2(top, name, kDirectoryFlags, 0, kBeneath);
        if (fd >= 0 || (errno != EAGAIN && errno != EINTR)) {
            break;
        }
    }
    return posix::unique_fd_t(fd);
}

posix::unique_fd_t OpenByWalk(int top, std::string_view name) {
    posix::unique_fd_t reached;
    int current = top;
    while (true) {
        const std::size_t slash = name.find('/');
        const std::string component(name.substr(0, slash));
        posix::unique_fd_t next = StepInto(current, component.c_str());
        if (!next || slash == std::string_view::npos) {
            return next;
        }
        reached = std::move(next);
        current = reached.get();
        name.remove_prefix(slash + 1);
    }
}

}  // namespace

EResolver ProbeResolver(int top) noexcept {
    const posix::unique_fd_t fd(posix::sys().openat2(top, ".", kDirectoryFlags, 0, kBeneath));
    return fd ? EResolver::eKernel : EResolver::eWalk;
}

posix::unique_fd_t OpenDirectoryBeneath(EResolver resolver, int top, std::string_view name) {
    if (name.empty()) {
        return posix::unique_fd_t(posix::sys().openat(top, ".", kDirectoryFlags, 0));
    }
    return resolver == EResolver::eKernel ? OpenByKernel(top, std::string(name).c_str()) : OpenByWalk(top, name);
}

posix::unique_fd_t StepInto(int dir, const char* component) {
    posix::unique_fd_t next(posix::sys().openat(dir, component, kDirectoryFlags | O_NOFOLLOW, 0));
    if (!next && errno == ENOTDIR) {
        struct stat found {};
        const bool isLink =
            posix::sys().fstatat(dir, component, &found, AT_SYMLINK_NOFOLLOW) == 0 && S_ISLNK(found.st_mode);
        errno = isLink ? ELOOP : ENOTDIR;
    }
    return next;
}

}  // namespace agent
