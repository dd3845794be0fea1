#include "agent/root/list_directory.h"

#include <dirent.h>

#include <cerrno>
#include <memory>
#include <string_view>

#include "mirrowen/posix/errno_exc.h"

namespace agent {

std::vector<std::string> ListDirectory(posix::unique_fd_t directory, const std::string& shown) {
    const std::unique_ptr<DIR, int (*)(DIR*)> stream(::fdopendir(directory.get()), &::closedir);
    if (!stream) {
        throw posix::errno_exc_t("Failed to list directory [%1]", shown, errno);
    }
    [[maybe_unused]] const int ownedByStream = directory.release();
    std::vector<std::string> names;
    while (true) {
        errno = 0;  // the only way to tell the end from a failure
        const dirent* entry = ::readdir(stream.get());
        if (entry == nullptr) {
            break;
        }
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..") {
            names.emplace_back(name);
        }
    }
    if (errno != 0) {
        throw posix::errno_exc_t("Failed to list directory [%1]", shown, errno);
    }
    return names;
}

}  // namespace agent
