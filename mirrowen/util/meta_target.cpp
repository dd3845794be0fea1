#include "mirrowen/util/meta_target.h"

#include <fcntl.h>

#include <cerrno>
#include <utility>

#include "mirrowen/posix/syscalls.h"

namespace util {

namespace {

int ErrnoOf(int result) {
    return result == 0 ? 0 : errno;
}

}  // namespace

meta_target_t::~meta_target_t() = default;

int descriptor_target_t::Examine(struct stat& status) const {
    return ErrnoOf(posix::sys().fstat(fd_, &status));
}

int descriptor_target_t::SetOwner(uid_t owner, gid_t group) const {
    return ErrnoOf(posix::sys().fchownat(fd_, "", owner, group, AT_EMPTY_PATH));
}

int descriptor_target_t::SetMode(mode_t mode) const {
    return ErrnoOf(posix::sys().fchmod(fd_, mode));
}

int descriptor_target_t::SetTimes(const struct timespec times[2]) const {
    return ErrnoOf(posix::sys().futimens(fd_, times));
}

name_target_t::name_target_t(int dirFd, std::string name)
    : dirFd_(dirFd), name_(std::move(name)), attributes_(xattr_target_t::OfPath(name_, false)) {}

int name_target_t::Examine(struct stat& status) const {
    return ErrnoOf(posix::sys().fstatat(dirFd_, name_.c_str(), &status, AT_SYMLINK_NOFOLLOW));
}

int name_target_t::SetOwner(uid_t owner, gid_t group) const {
    return ErrnoOf(posix::sys().fchownat(dirFd_, name_.c_str(), owner, group, AT_SYMLINK_NOFOLLOW));
}

int name_target_t::SetMode(mode_t mode) const {
    return ErrnoOf(posix::sys().fchmodat(dirFd_, name_.c_str(), mode, 0));
}

int name_target_t::SetTimes(const struct timespec times[2]) const {
    return ErrnoOf(posix::sys().utimensat(dirFd_, name_.c_str(), times, AT_SYMLINK_NOFOLLOW));
}

const xattr_target_t* name_target_t::Attributes() const {
    return dirFd_ == AT_FDCWD ? &attributes_ : nullptr;
}

}  // namespace util
