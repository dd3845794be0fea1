#include "agent/tree/opened_place.h"

#include <fcntl.h>

#include <cerrno>
#include <cstdlib>

#include "mirrowen/posix/errno_exc.h"
#include "mirrowen/posix/syscalls.h"

namespace agent {

namespace {

struct split_path_t {
    std::string directory;
    std::string last;
};

split_path_t split(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos) {
        return {".", path};
    }
    return {slash == 0 ? "/" : path.substr(0, slash), path.substr(slash + 1)};
}

std::string without_trailing_slashes(std::string path) {
    while (path.size() > 1 && path.back() == '/') {
        path.pop_back();
    }
    return path;
}

bool is_nameless(const std::string& last) {
    return last.empty() || last == "." || last == "..";
}

std::string resolve(const std::string& path) {
    char* const resolved = ::realpath(path.c_str(), nullptr);
    if (resolved == nullptr) {
        throw posix::errno_exc_t("Failed to open [%1]", path, errno);
    }
    const std::unique_ptr<char, void (*)(void*)> owner(resolved, &std::free);
    return resolved;
}

opened_place_t open_object(const std::string& path, const std::string& baseName) {
    const split_path_t parts = split(path);
    if (is_nameless(parts.last)) {
        return {OpenPlainRoot(path), "", ""};
    }
    opened_place_t place{OpenPlainRoot(parts.directory), parts.last, baseName};
    (void)place.root->Stat(place.top);  // there must be something
    return place;
}

}  // namespace

// What a tree of ours holds may be a root that is being served, but its staging folder is nothing special to a reader.
std::shared_ptr<const confined_root_t> OpenPlainRoot(const std::string& directory) {
    posix::unique_fd_t fd(posix::sys().open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC, 0));
    if (!fd) {
        throw posix::errno_exc_t("Failed to open directory [%1]", directory, errno);
    }
    return std::make_shared<confined_root_t>(std::move(fd), directory, EStagingFolder::eOrdinary);
}

opened_place_t OpenPlace(const std::string& path) {
    const std::string plain = without_trailing_slashes(path);
    const std::string baseName = split(plain).last;
    if (is_nameless(baseName)) {
        return {OpenPlainRoot(plain), "", ""};
    }
    return open_object(plain.size() == path.size() ? plain : resolve(plain), baseName);
}

}  // namespace agent
