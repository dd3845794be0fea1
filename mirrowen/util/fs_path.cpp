// Work on the texts of paths; the files themselves are not asked.
#include "mirrowen/util/fs.h"

namespace util {

std::string fs_merge_path(std::string_view directory, std::string_view name) {
    if (directory.empty()) {
        return std::string(name);
    }
    const std::size_t last = directory.find_last_not_of('/');
    std::string merged(directory.substr(0, last == std::string_view::npos ? 0 : last + 1));
    const std::size_t first = name.find_first_not_of('/');
    if (first == std::string_view::npos) {
        return merged.empty() ? "/" : merged;
    }
    return merged.append("/").append(name.substr(first));
}

std::string fs_merge_path_slash_sense(std::string_view directory, std::string_view name) {
    return fs_merge_path(directory, name);
}

std::vector<std::wstring> fs_split_path(std::wstring_view path) {
    std::vector<std::wstring> components;
    while (!path.empty()) {
        const std::wstring_view component = path.substr(0, path.find(L'/'));
        if (!component.empty()) {
            components.emplace_back(component);
        }
        path.remove_prefix(component.size() < path.size() ? component.size() + 1 : path.size());
    }
    return components;
}

std::size_t fs_find_last_unix_path_delim(std::wstring_view path) noexcept {
    return path.rfind(L'/');
}

}  // namespace util
