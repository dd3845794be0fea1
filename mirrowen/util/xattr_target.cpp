#include "mirrowen/util/xattr_target.h"

#include <cerrno>
#include <string_view>
#include <utility>

#include "mirrowen/posix/syscalls.h"
#include "mirrowen/util/file_info.h"

namespace util {

namespace {

constexpr std::size_t kFirstBuffer = 1024;
// The kernel's own limit of a list of names.
constexpr std::size_t kLargestList = std::size_t{64} << 10;

// Calls `read` with a small buffer and, when what is there does not fit, with the largest.
template <class Read>
int ReadGrowing(std::string& buffer, std::size_t largest, Read read) {
    for (const std::size_t size : {kFirstBuffer, largest}) {
        buffer.resize(size);
        const ssize_t count = read(buffer.data(), buffer.size());
        if (count >= 0) {
            buffer.resize(static_cast<std::size_t>(count));
            return 0;
        }
        if (errno != ERANGE) {
            return errno;
        }
    }
    return E2BIG;
}

std::vector<std::string> SplitNames(std::string_view list) {
    std::vector<std::string> names;
    while (!list.empty()) {
        const std::string_view name = list.substr(0, list.find('\0'));
        names.emplace_back(name);
        list.remove_prefix(name.size() < list.size() ? name.size() + 1 : name.size());
    }
    return names;
}

}  // namespace

int xattr_target_t::List(std::vector<std::string>& names) const {
    const posix::syscalls_t& sys = posix::sys();
    std::string list;
    const int error = ReadGrowing(list, kLargestList, [&](char* buffer, std::size_t size) {
        return way_ == EWay::eDescriptor ? sys.flistxattr(fd_, buffer, size)
               : way_ == EWay::eNoFollow ? sys.llistxattr(path_.c_str(), buffer, size)
                                         : sys.listxattr(path_.c_str(), buffer, size);
    });
    names.clear();
    if (error == 0) {
        names = SplitNames(list);
    }
    return error == ENOTSUP ? 0 : error;
}

int xattr_target_t::Get(const std::string& name, std::string& value) const {
    const posix::syscalls_t& sys = posix::sys();
    return ReadGrowing(value, kMaxAttributeValue, [&](char* buffer, std::size_t size) {
        return way_ == EWay::eDescriptor ? sys.fgetxattr(fd_, name.c_str(), buffer, size)
               : way_ == EWay::eNoFollow ? sys.lgetxattr(path_.c_str(), name.c_str(), buffer, size)
                                         : sys.getxattr(path_.c_str(), name.c_str(), buffer, size);
    });
}

int xattr_target_t::Set(const std::string& name, const void* value, std::size_t size) const {
    const posix::syscalls_t& sys = posix::sys();
    const int result = way_ == EWay::eDescriptor ? sys.fsetxattr(fd_, name.c_str(), value, size, 0)
                                                 : sys.lsetxattr(path_.c_str(), name.c_str(), value, size, 0);
    return result == 0 ? 0 : errno;
}

int xattr_target_t::Remove(const std::string& name) const {
    const posix::syscalls_t& sys = posix::sys();
    const int result =
        way_ == EWay::eDescriptor ? sys.fremovexattr(fd_, name.c_str()) : sys.lremovexattr(path_.c_str(), name.c_str());
    return result == 0 ? 0 : errno;
}

}  // namespace util
