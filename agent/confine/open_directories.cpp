#include "agent/confine/open_directories.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <memory>
#include <string_view>
#include <vector>

#include "mirrowen/posix/errno_exc.h"
#include "mirrowen/posix/unique_fd.h"

namespace agent {

namespace {

constexpr const char* kDescriptors = "/proc/self/fd";

struct closer_t {
    void operator()(DIR* directory) const noexcept { ::closedir(directory); }
};

[[noreturn]] void Fail() {
    throw posix::errno_exc_t("Failed to close directories listed in [%1]", kDescriptors, errno);
}

bool IsDirectory(int fd) {
    struct stat status {};
    return ::fstat(fd, &status) == 0 && S_ISDIR(status.st_mode);
}

// Without the one that reads them.
std::vector<int> OpenDescriptors() {
    const std::unique_ptr<DIR, closer_t> directory(::opendir(kDescriptors));
    if (!directory) {
        Fail();
    }
    std::vector<int> descriptors;
    errno = 0;
    while (const dirent* const entry = ::readdir(directory.get())) {
        const std::string_view name = entry->d_name;
        int fd = -1;
        if (std::from_chars(name.data(), name.data() + name.size(), fd).ec == std::errc() &&
            fd != ::dirfd(directory.get())) {
            descriptors.push_back(fd);
        }
        errno = 0;
    }
    if (errno != 0) {
        Fail();
    }
    return descriptors;
}

}  // namespace

void CloseDirectories() {
    const posix::unique_fd_t null(::open("/dev/null", O_RDWR | O_CLOEXEC));
    if (!null) {
        Fail();
    }
    for (const int fd : OpenDescriptors()) {
        if (IsDirectory(fd) && ::dup3(null.get(), fd, O_CLOEXEC) < 0) {
            Fail();
        }
    }
}

}  // namespace agent
