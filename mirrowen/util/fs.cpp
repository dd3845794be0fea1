#include "mirrowen/util/fs.h"

#include <cerrno>

#include "mirrowen/posix/errno_exc.h"
#include "mirrowen/posix/syscalls.h"

namespace util {

namespace {

bool is_absence(int error) noexcept {
    return error == ENOENT || error == ENOTDIR;
}

// False when nothing is there; `follow`: ask for what a link leads to.
bool examine(const std::string& path, bool follow, struct stat& out) {
    const posix::syscalls_t& sys = posix::sys();
    if ((follow ? sys.stat(path.c_str(), &out) : sys.lstat(path.c_str(), &out)) == 0) {
        return true;
    }
    if (is_absence(errno)) {
        return false;
    }
    throw posix::errno_exc_t("Failed to examine [%1]", path, errno);
}

}  // namespace

bool g_fs_hosted_os_case_sensitive_paths = true;

bool fs_file_exists(const std::string& path) {
    struct stat info = {};
    return examine(path, false, info);
}

bool fs_directory_exists(const std::string& path) {
    struct stat info = {};
    return examine(path, true, info) && S_ISDIR(info.st_mode);
}

void fs_file_delete(const std::string& path) {
    const posix::syscalls_t& sys = posix::sys();
    if (sys.unlinkat(AT_FDCWD, path.c_str(), 0) == 0) {
        return;
    }
    int error = errno;
    // unlink(2) refuses directories with EISDIR on Linux and with EPERM elsewhere.
    if (error == EISDIR || error == EPERM) {
        if (sys.unlinkat(AT_FDCWD, path.c_str(), AT_REMOVEDIR) == 0) {
            return;
        }
        error = errno == ENOTDIR ? error : errno;
    }
    throw posix::errno_exc_t("Failed to delete file [%1]", path, error);
}

std::uint64_t fs_file_size(const std::string& path) {
    struct stat info = {};
    if (posix::sys().stat(path.c_str(), &info) != 0) {
        throw posix::errno_exc_t("Failed to get size of file [%1]", path, errno);
    }
    return static_cast<std::uint64_t>(info.st_size);
}

void fs_make_directory(const std::string& path) {
    if (posix::sys().mkdirat(AT_FDCWD, path.c_str(), 0777) == 0) {
        return;
    }
    const int error = errno;
    if (error != EEXIST || !fs_directory_exists(path)) {
        throw posix::errno_exc_t("Failed to create directory [%1]", path, error);
    }
}

void CPathUtils::rename(const std::string& from, const std::string& to) {
    if (posix::sys().renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), 0) != 0) {
        throw posix::errno_exc_t("Failed to rename [%1]", from, errno);
    }
}

}  // namespace util
