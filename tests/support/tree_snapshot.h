#pragma once

#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>

namespace tests {

/// Everything that can be seen of the tree below a directory, to tell whether anything in it was changed: for each
/// relative path its type, mode, owner, modification time and content. The directory itself is the entry "".
inline std::map<std::string, std::string> SnapshotOf(const std::filesystem::path& top) {
    std::map<std::string, std::string> seen;
    const auto add = [&](const std::filesystem::path& path) {
        struct stat found {};
        if (::lstat(path.c_str(), &found) != 0) {
            return;
        }
        std::string text = std::to_string(found.st_mode) + " " + std::to_string(found.st_uid) + " " +
                           std::to_string(found.st_mtim.tv_sec) + "." + std::to_string(found.st_mtim.tv_nsec);
        if (S_ISREG(found.st_mode)) {
            std::ifstream file(path, std::ios::binary);
            text.append(" ").append(std::istreambuf_iterator<char>(file), {});
        } else if (S_ISLNK(found.st_mode)) {
            text += " -> " + std::filesystem::read_symlink(path).string();
        }
        seen[path == top ? std::string() : path.lexically_relative(top).string()] = text;
    };
    add(top);
    for (const auto& entry : std::filesystem::recursive_directory_iterator(top)) {
        add(entry.path());
    }
    return seen;
}

/// The number of open descriptors of this process.
inline std::size_t CountDescriptors() {
    return static_cast<std::size_t>(
        std::distance(std::filesystem::directory_iterator("/proc/self/fd"), std::filesystem::directory_iterator()));
}

}  // namespace tests
