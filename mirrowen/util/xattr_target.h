#pragma once

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "mirrowen/export.h"

namespace util {

/// One file's extended attributes, reached by descriptor or by path (xattr(7)). Every call returns 0 or the errno,
/// since a caller goes on with the other attributes. One thread at a time.
class MIRROWEN_API xattr_target_t {
  public:
    /// `fd` stays the caller's and must not be an O_PATH descriptor.
    static xattr_target_t OfDescriptor(int fd) { return {EWay::eDescriptor, fd, {}}; }
    /// With `followLinks` false a link's own attributes; such a target is for reading and writing, a following one for
    /// reading only.
    static xattr_target_t OfPath(std::string path, bool followLinks) {
        return {followLinks ? EWay::eFollow : EWay::eNoFollow, -1, std::move(path)};
    }

    /// Replaces `names`. A file system without attributes has none.
    int List(std::vector<std::string>& names) const;
    /// Replaces `value`. E2BIG for one of more than kMaxAttributeValue bytes.
    int Get(const std::string& name, std::string& value) const;
    int Set(const std::string& name, const void* value, std::size_t size) const;
    int Remove(const std::string& name) const;

  private:
    enum class EWay { eDescriptor, eNoFollow, eFollow };

    xattr_target_t(EWay way, int fd, std::string path) : way_(way), fd_(fd), path_(std::move(path)) {}

    EWay way_;
    int fd_;
    std::string path_;
};

}  // namespace util
