#include "mirrowen/posix/syscalls.h"

#include <linux/openat2.h>
#include <sys/file.h>
#include <sys/syscall.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>

namespace posix {

namespace {

int real_open(const char* path, int flags, mode_t mode) {
    return ::open(path, flags, mode);
}

int real_openat(int dir, const char* path, int flags, mode_t mode) {
    return ::openat(dir, path, flags, mode);
}

int real_openat2(int dir, const char* path, std::uint64_t flags, std::uint64_t mode, std::uint64_t resolve) {
    struct open_how how {};
    how.flags = flags;
    how.mode = mode;
    how.resolve = resolve;
    // The C library has no function for it.
    return static_cast<int>(::syscall(SYS_openat2, dir, path, &how, sizeof how));
}

constexpr syscalls_t kReal = {
    .open = real_open,
    .openat = real_openat,
    .openat2 = real_openat2,
    .close = ::close,
    .read = ::read,
    .pread = ::pread,
    .write = ::write,
    .pwrite = ::pwrite,
    .lseek = ::lseek,
    .fstat = ::fstat,
    .stat = ::stat,
    .lstat = ::lstat,
    .fstatat = ::fstatat,
    .ftruncate = ::ftruncate,
    .fsync = ::fsync,
    .syncfs = ::syncfs,
    .flock = ::flock,
    .mkdirat = ::mkdirat,
    .unlinkat = ::unlinkat,
    .renameat2 = ::renameat2,
    .linkat = ::linkat,
    .symlinkat = ::symlinkat,
    .readlinkat = ::readlinkat,
    .fchownat = ::fchownat,
    .fchmod = ::fchmod,
    .utimensat = ::utimensat,
    .futimens = ::futimens,
    .fchmodat = ::fchmodat,
    .listxattr = ::listxattr,
    .llistxattr = ::llistxattr,
    .flistxattr = ::flistxattr,
    .getxattr = ::getxattr,
    .lgetxattr = ::lgetxattr,
    .fgetxattr = ::fgetxattr,
    .lsetxattr = ::lsetxattr,
    .fsetxattr = ::fsetxattr,
    .lremovexattr = ::lremovexattr,
    .fremovexattr = ::fremovexattr,
};

constinit std::atomic<const syscalls_t*> g_inForce{&kReal};

}  // namespace

const syscalls_t& sys() noexcept {
    return *g_inForce.load(std::memory_order_acquire);
}

const syscalls_t& real_syscalls() noexcept {
    return kReal;
}

scoped_syscalls_t::scoped_syscalls_t(const syscalls_t& table) noexcept : previous_(g_inForce.exchange(&table)) {}

scoped_syscalls_t::~scoped_syscalls_t() {
    g_inForce.store(previous_);
}

}  // namespace posix
