// Magic numbers of file systems: statfs(2) and the kernel's linux/magic.h.
#include <sys/vfs.h>

#include <atomic>
#include <cerrno>

#include "mirrowen/posix/errno_exc.h"
#include "mirrowen/util/fs.h"

namespace util {

namespace {

constexpr std::uint32_t kSmb = 0x517B;
constexpr std::uint32_t kSmb2 = 0xFE534D42;
constexpr std::uint32_t kCifs = 0xFF534D42;

long real_fs_type(const char* path) {
    struct statfs info = {};
    return ::statfs(path, &info) == 0 ? static_cast<long>(info.f_type) : -1;
}

constinit std::atomic<fs_type_function_t> g_fsType{real_fs_type};

std::string parent_of(const std::string& path) {
    const std::size_t nameEnd = path.find_last_not_of('/');
    const std::size_t slash = nameEnd == std::string::npos ? 0 : path.rfind('/', nameEnd);
    if (slash == std::string::npos) {
        return ".";
    }
    return slash == 0 ? "/" : path.substr(0, slash);
}

}  // namespace

bool fs_is_smb_path(const std::string& path) {
    const fs_type_function_t fsType = g_fsType.load(std::memory_order_acquire);
    std::string existing = path;
    while (true) {
        const long type = fsType(existing.c_str());
        if (type != -1) {
            // The kernel's field is signed on some architectures: the upper half tells nothing.
            const auto magic = static_cast<std::uint32_t>(type);
            return magic == kSmb || magic == kSmb2 || magic == kCifs;
        }
        if ((errno != ENOENT && errno != ENOTDIR) || existing == "/" || existing == ".") {
            throw posix::errno_exc_t("Failed to find the file system of [%1]", path, errno);
        }
        existing = parent_of(existing);
    }
}

scoped_fs_type_t::scoped_fs_type_t(fs_type_function_t function) noexcept : previous_(g_fsType.exchange(function)) {}

scoped_fs_type_t::~scoped_fs_type_t() {
    g_fsType.store(previous_);
}

}  // namespace util
