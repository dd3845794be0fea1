#include "agent/confine/mount_view.h"

#include <fcntl.h>
#include <linux/capability.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <string>

#include "agent/confine/capabilities.h"
#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/posix/errno_exc.h"
#include "mirrowen/posix/unique_fd.h"

namespace agent {

namespace {

// include/uapi/linux/mount.h, whose header does not go together with that of the C library.
constexpr unsigned kTreeClone = 1;
constexpr unsigned kRecursive = 0x8000;
constexpr unsigned kMoveFromDescriptor = 0x4;
struct mount_attributes_t {
    std::uint64_t set = 0;
    std::uint64_t clear = 0;
    std::uint64_t propagation = 0;
    std::uint64_t userNamespace = 0;
};
constexpr std::uint64_t kNoSetUserId = 0x2;
constexpr std::uint64_t kNoDevices = 0x4;
constexpr std::uint64_t kNoExecution = 0x8;

[[noreturn]] void Fail(const char* format, const char* kind) {
    throw posix::errno_exc_t(format, kind, errno);
}

void Unshare(int flags, const char* kind) {
    // CLONE_THREAD asks for nothing but that there is no other thread, which would stay outside.
    if (::unshare(flags | CLONE_THREAD) == 0) {
        return;
    }
    if (errno == EINVAL) {
        throw exc::CRuntimeExc(std::string("The process has more than one thread."));
    }
    Fail("Failed to make a [%1] namespace", kind);
}

void WriteOwn(const char* file, const std::string& text) {
    const posix::unique_fd_t fd(::open(file, O_WRONLY | O_CLOEXEC));
    if (!fd || ::write(fd.get(), text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
        Fail("Failed to set up the [%1] namespace", "user");
    }
}

std::string Itself(unsigned id) {
    return std::to_string(id) + " " + std::to_string(id) + " 1\n";
}

void MapOwnIds(uid_t user, gid_t group) {
    // After a change of user without an exec the files in "/proc/self" belong to root.
    const bool closed = ::prctl(PR_GET_DUMPABLE) != 1 && ::prctl(PR_SET_DUMPABLE, 1) == 0;
    WriteOwn("/proc/self/setgroups", "deny");  // without it nobody but root may map a group
    WriteOwn("/proc/self/uid_map", Itself(user));
    WriteOwn("/proc/self/gid_map", Itself(group));
    if (closed) {
        (void)::prctl(PR_SET_DUMPABLE, 0);
    }
}

}  // namespace

EConfinedBy LeaveMountNamespace() {
    EConfinedBy how = EConfinedBy::ePrivilege;
    if (HasCapability(CAP_SYS_ADMIN)) {
        Unshare(CLONE_NEWNS, "mount");
    } else {
        how = EConfinedBy::eUserNamespace;
        const uid_t user = ::geteuid();
        const gid_t group = ::getegid();
        Unshare(CLONE_NEWUSER | CLONE_NEWNS, "user");
        MapOwnIds(user, group);
    }
    if (::mount(nullptr, "/", nullptr, MS_REC | MS_SLAVE, nullptr) != 0) {
        Fail("Failed to set up the [%1] namespace", "mount");
    }
    return how;
}

void EnterWorkingDirectory() {
    constexpr const char* format = "Failed to make the root of the [%1] namespace";
    const posix::unique_fd_t tree(
        static_cast<int>(::syscall(SYS_open_tree, AT_FDCWD, ".", kTreeClone | kRecursive | O_CLOEXEC)));
    if (!tree) {
        Fail(format, "mount");
    }
    mount_attributes_t attributes;
    attributes.set = kNoSetUserId | kNoDevices | kNoExecution;
    if (::syscall(SYS_mount_setattr, tree.get(), "", AT_EMPTY_PATH | kRecursive, &attributes, sizeof attributes) != 0 &&
        errno != ENOSYS) {
        Fail(format, "mount");
    }
    // The old root comes to lie on top of the new one, where "." finds it once more, to be unmounted.
    if (::syscall(SYS_move_mount, tree.get(), "", AT_FDCWD, ".", kMoveFromDescriptor) != 0 ||
        ::fchdir(tree.get()) != 0 || ::syscall(SYS_pivot_root, ".", ".") != 0 || ::umount2(".", MNT_DETACH) != 0 ||
        ::chdir("/") != 0) {
        Fail(format, "mount");
    }
}

}  // namespace agent
