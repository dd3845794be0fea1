#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <string>

#include "mirrowen/util/xattr_target.h"

namespace util {

/// A file whose attributes are changed, by descriptor or by name. Every call returns 0 or the errno. Internal to the
/// code that applies attributes; one thread.
class meta_target_t {
  public:
    virtual ~meta_target_t();
    virtual int Examine(struct stat& status) const = 0;
    /// An id of all ones leaves that part as it is.
    virtual int SetOwner(uid_t owner, gid_t group) const = 0;
    virtual int SetMode(mode_t mode) const = 0;
    virtual int SetTimes(const struct timespec times[2]) const = 0;
    /// Null where extended attributes cannot be reached.
    virtual const xattr_target_t* Attributes() const = 0;
};

class descriptor_target_t final : public meta_target_t {
  public:
    explicit descriptor_target_t(int fd) : fd_(fd), attributes_(xattr_target_t::OfDescriptor(fd)) {}
    int Examine(struct stat& status) const override;
    int SetOwner(uid_t owner, gid_t group) const override;
    int SetMode(mode_t mode) const override;
    int SetTimes(const struct timespec times[2]) const override;
    const xattr_target_t* Attributes() const override { return &attributes_; }

  private:
    int fd_;
    xattr_target_t attributes_;
};

/// A name in a directory, links not followed.
class name_target_t final : public meta_target_t {
  public:
    name_target_t(int dirFd, std::string name);
    int Examine(struct stat& status) const override;
    int SetOwner(uid_t owner, gid_t group) const override;
    /// Only after Examine has shown that the name is no link: chmod(2) would follow one.
    int SetMode(mode_t mode) const override;
    int SetTimes(const struct timespec times[2]) const override;
    const xattr_target_t* Attributes() const override;

  private:
    int dirFd_;
    std::string name_;
    xattr_target_t attributes_;
};

}  // namespace util
