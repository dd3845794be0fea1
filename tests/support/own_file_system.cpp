#include "tests/support/own_file_system.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include "mirrowen/posix/unique_fd.h"

namespace tests {

namespace {

constexpr off_t kImageSize = off_t{512} << 20;  // mkfs.xfs makes nothing below 300 MiB

bool Run(const std::string& command) {
    return std::system((command + " >/dev/null 2>&1").c_str()) == 0;  // NOLINT(cert-env33-c): our own words
}

bool MakeImage(const std::string& path) {
    const posix::unique_fd_t fd(::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    return fd && ::ftruncate(fd.get(), kImageSize) == 0;
}

}  // namespace

own_file_system_t::own_file_system_t(const std::string& kind) : path_(dir_ / "mounted"), whyNot_(Mount(kind)) {}

own_file_system_t::~own_file_system_t() {
    if (whyNot_.empty()) {
        ::umount2(path_.c_str(), MNT_DETACH);
    }
}

std::string own_file_system_t::Mount(const std::string& kind) const {
    if (::geteuid() != 0 || ::unshare(CLONE_NEWNS) != 0 ||
        ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
        return "a file system can only be mounted with privileges";
    }
    if (::mkdir(path_.c_str(), 0755) != 0) {
        return "no place to mount at";
    }
    if (kind == "tmpfs") {
        return ::mount("none", path_.c_str(), "tmpfs", 0, nullptr) == 0 ? "" : "no tmpfs can be mounted";
    }
    const std::string image = dir_ / "image";
    if (!MakeImage(image) || !Run("mkfs." + kind + " -q '" + image + "'")) {
        return "no mkfs." + kind + " that makes an image";
    }
    return Run("mount -o loop '" + image + "' '" + path_ + "'") ? "" : "no image of " + kind + " can be mounted";
}

}  // namespace tests
