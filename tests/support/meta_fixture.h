#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cstdint>
#include <stdexcept>
#include <string>

#include "mirrowen/posix/unique_fd.h"
#include "tests/support/temp_dir.h"

namespace tests {

/// A temporary directory with what tests of file attributes need: making objects and looking at them with bare calls.
class meta_fixture_t {
  public:
    /// Everyone may enter the directory, so a child without privileges reaches the files.
    meta_fixture_t() { Check(::chmod(root_.c_str(), 0755)); }

    std::string Path(const std::string& name) const { return root_ + "/" + name; }

    std::string MakeFile(const std::string& name, mode_t mode = 0644, const std::string& content = "hello") const {
        WriteFile(Path(name), content);
        Check(::chmod(Path(name).c_str(), mode));
        return Path(name);
    }

    std::string MakeDirectory(const std::string& name, mode_t mode = 0755) const {
        Check(::mkdir(Path(name).c_str(), 0700));
        Check(::chmod(Path(name).c_str(), mode));
        return Path(name);
    }

    std::string MakeLink(const std::string& name, const std::string& target) const {
        Check(::symlink(target.c_str(), Path(name).c_str()));
        return Path(name);
    }

    std::string MakeFifo(const std::string& name, mode_t mode = 0600) const {
        Check(::mkfifo(Path(name).c_str(), mode));
        return Path(name);
    }

    static void SetAttribute(const std::string& path, const std::string& name, const std::string& value) {
        Check(::lsetxattr(path.c_str(), name.c_str(), value.data(), value.size(), 0));
    }

    /// The value, or "(none)".
    static std::string GetAttribute(const std::string& path, const std::string& name) {
        std::string value(65536, '\0');
        const ssize_t count = ::lgetxattr(path.c_str(), name.c_str(), value.data(), value.size());
        return count < 0 ? "(none)" : value.substr(0, static_cast<std::size_t>(count));
    }

    static struct stat Look(const std::string& path) {
        struct stat status;
        Check(::lstat(path.c_str(), &status));
        return status;
    }

    static posix::unique_fd_t Open(const std::string& path) {
        posix::unique_fd_t fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
        Check(fd ? 0 : -1);
        return fd;
    }

    static bool IsRoot() { return ::geteuid() == 0; }

    /// The kernel's binary form of "user::rw-,user:1000:r--,group::r--,mask::r--,other::r--" (linux/posix_acl_xattr.h:
    /// a u32 version 2, then for each entry u16 tag, u16 permissions, u32 id).
    static std::string AccessList() {
        const std::string none = "\xff\xff\xff\xff";
        return std::string("\x02\0\0\0", 4) + std::string("\x01\0\x06\0", 4) + none +
               std::string("\x02\0\x04\0\xe8\x03\0\0", 8) + std::string("\x04\0\x04\0", 4) + none +
               std::string("\x10\0\x04\0", 4) + none + std::string("\x20\0\x04\0", 4) + none;
    }

  private:
    static void Check(int result) {
        if (result < 0) {
            throw std::runtime_error("a test could not prepare its files");
        }
    }

    temp_dir_t dir_;
    std::string root_{dir_.path()};
};

}  // namespace tests
