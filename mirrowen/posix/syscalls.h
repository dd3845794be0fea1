#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/uio.h>

#include <cstddef>
#include <cstdint>

#include "mirrowen/export.h"

namespace posix {

/// The system calls that change or read files, as a table: production uses the real ones, a test replaces one to make
/// it fail, end short or be counted. Every file operation of the house goes through it; the wrappers that loop on EINTR
/// and on short counts stand above it, in `posix_file_t`.
///
/// Source of each call's meaning: POSIX.1-2017 and the Linux man pages of the same name.
struct syscalls_t {
    int (*open)(const char* path, int flags, mode_t mode);
    int (*openat)(int dir, const char* path, int flags, mode_t mode);
    /// openat2(2) with its three words spread out.
    int (*openat2)(int dir, const char* path, std::uint64_t flags, std::uint64_t mode, std::uint64_t resolve);
    int (*close)(int fd);
    ssize_t (*read)(int fd, void* buffer, std::size_t count);
    ssize_t (*pread)(int fd, void* buffer, std::size_t count, off_t offset);
    ssize_t (*write)(int fd, const void* buffer, std::size_t count);
    ssize_t (*pwrite)(int fd, const void* buffer, std::size_t count, off_t offset);
    off_t (*lseek)(int fd, off_t offset, int whence);
    int (*fstat)(int fd, struct stat* out);
    int (*stat)(const char* path, struct stat* out);
    int (*lstat)(const char* path, struct stat* out);
    int (*fstatat)(int dir, const char* path, struct stat* out, int flags);
    int (*ftruncate)(int fd, off_t length);
    int (*fsync)(int fd);
    int (*syncfs)(int fd);
    int (*flock)(int fd, int operation);
    int (*mkdirat)(int dir, const char* path, mode_t mode);
    int (*unlinkat)(int dir, const char* path, int flags);
    int (*renameat2)(int fromDir, const char* from, int toDir, const char* to, unsigned int flags);
    int (*linkat)(int fromDir, const char* from, int toDir, const char* to, int flags);
    int (*symlinkat)(const char* target, int dir, const char* path);
    ssize_t (*readlinkat)(int dir, const char* path, char* buffer, std::size_t size);
    int (*fchownat)(int dir, const char* path, uid_t owner, gid_t group, int flags);
    int (*fchmod)(int fd, mode_t mode);
    int (*utimensat)(int dir, const char* path, const struct timespec times[2], int flags);
    int (*futimens)(int fd, const struct timespec times[2]);
    int (*fchmodat)(int dir, const char* path, mode_t mode, int flags);
    ssize_t (*listxattr)(const char* path, char* list, std::size_t size);
    ssize_t (*llistxattr)(const char* path, char* list, std::size_t size);
    ssize_t (*flistxattr)(int fd, char* list, std::size_t size);
    ssize_t (*getxattr)(const char* path, const char* name, void* value, std::size_t size);
    ssize_t (*lgetxattr)(const char* path, const char* name, void* value, std::size_t size);
    ssize_t (*fgetxattr)(int fd, const char* name, void* value, std::size_t size);
    int (*lsetxattr)(const char* path, const char* name, const void* value, std::size_t size, int flags);
    int (*fsetxattr)(int fd, const char* name, const void* value, std::size_t size, int flags);
    int (*lremovexattr)(const char* path, const char* name);
    int (*fremovexattr)(int fd, const char* name);
};

/// The table in force. Reading it is lock-free; any thread.
MIRROWEN_API const syscalls_t& sys() noexcept;

/// The real calls.
MIRROWEN_API const syscalls_t& real_syscalls() noexcept;

/// Puts a changed table in force for the life of this object. For tests: one at a time, made and destroyed while no
/// other thread is in a system call of the table.
class MIRROWEN_API scoped_syscalls_t {
  public:
    /// `table` must outlive this object.
    explicit scoped_syscalls_t(const syscalls_t& table) noexcept;
    ~scoped_syscalls_t();
    scoped_syscalls_t(const scoped_syscalls_t&) = delete;
    scoped_syscalls_t& operator=(const scoped_syscalls_t&) = delete;

  private:
    const syscalls_t* previous_;
};

}  // namespace posix
