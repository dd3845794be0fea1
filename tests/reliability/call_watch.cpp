// Loaded before the C library into a command under test: counts those system calls that change files or talk to the
// other end, and does with them what the environment says.
//
//   TARN_WATCH_DIE=N   the process kills itself right before the Nth of them
//   TARN_WATCH_LOG=F   one line each goes to the file F: "CALL INODE" for a call that takes a descriptor, "CALL INODE
//                      DIRECTORY NAME" for one that puts an object into a directory or takes it away; objects are told
//                      by inode number, "?" for one that the call makes
//
// Children that it forks count with it, and die with it. Without the variables it does nothing.
#include <dlfcn.h>
#include <fcntl.h>
#include <linux/openat2.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

struct watch_t {
    watch_t() {
        if (const char* const number = std::getenv("TARN_WATCH_DIE")) {
            dieAt = std::strtoul(number, nullptr, 10);
        }
        if (const char* const path = std::getenv("TARN_WATCH_LOG")) {
            log = static_cast<int>(::syscall(SYS_open, path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
        }
    }

    const pid_t process = ::getpid();
    unsigned long dieAt = 0;
    int log = -1;
    /// Shared with what it forks.
    std::atomic<unsigned long>& calls = *static_cast<std::atomic<unsigned long>*>(
        ::mmap(nullptr, sizeof(std::atomic<unsigned long>), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
};

watch_t& Watch() {
    static watch_t watch;
    return watch;
}

/// The next function of this name, that of the C library.
template <class Function>
Function* Next(Function*, const char* name) {
    return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

std::string InodeOf(int fd) {
    struct stat found {};
    return ::fstat(fd, &found) == 0 ? std::to_string(found.st_ino) : "?";
}

std::string InodeOf(int dir, const char* name) {
    struct stat found {};
    return ::fstatat(dir, name, &found, AT_SYMLINK_NOFOLLOW) == 0 ? std::to_string(found.st_ino) : "?";
}

/// Right before a call.
void Step(const char* call, const std::string& objects) {
    watch_t& watch = Watch();
    if (++watch.calls == watch.dieAt) {
        ::kill(watch.process, SIGKILL);
        ::kill(::getpid(), SIGKILL);
    }
    if (watch.log >= 0) {
        const std::string line = std::string(call) + " " + objects + "\n";
        ::syscall(SYS_write, watch.log, line.data(), line.size());
    }
}

bool IsWatching() {
    return Watch().dieAt != 0 || Watch().log >= 0;
}

void StepOf(const char* call, int fd) {
    if (IsWatching()) {
        Step(call, InodeOf(fd));
    }
}

void StepInto(const char* call, const std::string& inode, int dir, const char* name) {
    if (IsWatching()) {
        Step(call, inode + " " + InodeOf(dir, ".") + " " + name);
    }
}

}  // namespace

#define TARN_WATCHED extern "C" __attribute__((visibility("default")))

// A call that takes a descriptor first: its type, name, parameters and arguments.
#define TARN_WATCH_FD(result, name, parameters, ...)                      \
    TARN_WATCHED result name parameters {                                 \
        StepOf(#name, fd);                                                \
        static const auto next = Next<result parameters>(nullptr, #name); \
        return next(__VA_ARGS__);                                         \
    }

TARN_WATCH_FD(ssize_t, write, (int fd, const void* bytes, size_t count), fd, bytes, count)
TARN_WATCH_FD(ssize_t, pwrite64, (int fd, const void* bytes, size_t count, off64_t at), fd, bytes, count, at)
TARN_WATCH_FD(ssize_t, send, (int fd, const void* bytes, size_t count, int flags), fd, bytes, count, flags)
TARN_WATCH_FD(ssize_t, recv, (int fd, void* bytes, size_t count, int flags), fd, bytes, count, flags)
TARN_WATCH_FD(int, ftruncate64, (int fd, off64_t size) noexcept, fd, size)
TARN_WATCH_FD(int, fsync, (int fd), fd)
TARN_WATCH_FD(int, fdatasync, (int fd), fd)
TARN_WATCH_FD(int, syncfs, (int fd) noexcept, fd)
TARN_WATCH_FD(int, fchmod, (int fd, mode_t mode) noexcept, fd, mode)
TARN_WATCH_FD(int, futimens, (int fd, const struct timespec times[2]) noexcept, fd, times)

TARN_WATCHED int fsetxattr(int fd, const char* name, const void* value, size_t size, int flags) noexcept {
    StepOf("fsetxattr", fd);
    static const auto next = Next(&::fsetxattr, "fsetxattr");
    return next(fd, name, value, size, flags);
}

TARN_WATCHED int fchownat(int dir, const char* name, uid_t user, gid_t group, int flags) noexcept {
    if (IsWatching()) {
        Step("fchownat", *name == '\0' ? InodeOf(dir) : InodeOf(dir, name));
    }
    static const auto next = Next(&::fchownat, "fchownat");
    return next(dir, name, user, group, flags);
}

TARN_WATCHED int utimensat(int dir, const char* name, const struct timespec times[2], int flags) noexcept {
    if (IsWatching()) {
        Step("utimensat", *name == '\0' ? InodeOf(dir) : InodeOf(dir, name));
    }
    static const auto next = Next(&::utimensat, "utimensat");
    return next(dir, name, times, flags);
}

TARN_WATCHED int mkdirat(int dir, const char* name, mode_t mode) noexcept {
    StepInto("mkdirat", "?", dir, name);
    static const auto next = Next(&::mkdirat, "mkdirat");
    return next(dir, name, mode);
}

TARN_WATCHED int symlinkat(const char* target, int dir, const char* name) noexcept {
    StepInto("symlinkat", "?", dir, name);
    static const auto next = Next(&::symlinkat, "symlinkat");
    return next(target, dir, name);
}

TARN_WATCHED int linkat(int fromDir, const char* from, int dir, const char* name, int flags) noexcept {
    StepInto("linkat", InodeOf(fromDir, from), dir, name);
    static const auto next = Next(&::linkat, "linkat");
    return next(fromDir, from, dir, name, flags);
}

TARN_WATCHED int unlinkat(int dir, const char* name, int flags) noexcept {
    StepInto("unlinkat", InodeOf(dir, name), dir, name);
    static const auto next = Next(&::unlinkat, "unlinkat");
    return next(dir, name, flags);
}

TARN_WATCHED int renameat2(int fromDir, const char* from, int dir, const char* name, unsigned int flags) noexcept {
    StepInto("renameat2", InodeOf(fromDir, from), dir, name);
    static const auto next = Next(&::renameat2, "renameat2");
    return next(fromDir, from, dir, name, flags);
}

TARN_WATCHED int openat64(int dir, const char* name, int flags, ...) {
    va_list list;
    va_start(list, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(list, mode_t) : 0;
    va_end(list);
    if ((flags & O_CREAT) != 0) {
        StepInto("create", "?", dir, name);
    }
    static const auto next = Next<int(int, const char*, int, ...)>(nullptr, "openat64");
    return next(dir, name, flags, mode);
}

// Of what comes this way only the making of a file is a step.
TARN_WATCHED long syscall(long number, ...) noexcept {
    va_list list;
    va_start(list, number);
    long words[6];
    for (long& word : words) {
        word = va_arg(list, long);
    }
    va_end(list);
    if (number == SYS_openat2 && (reinterpret_cast<const open_how*>(words[2])->flags & O_CREAT) != 0) {
        StepInto("create", "?", static_cast<int>(words[0]), reinterpret_cast<const char*>(words[1]));
    }
    static const auto next = Next(&::syscall, "syscall");
    return next(number, words[0], words[1], words[2], words[3], words[4], words[5]);
}
