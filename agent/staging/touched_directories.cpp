#include "agent/staging/touched_directories.h"

#include <exception>

#include "mirrowen/exc/exception.h"

namespace agent {

void touched_directories_t::Add(std::string_view name, const std::vector<std::string>& made, std::uint64_t entry) {
    AddDirectoryOf(name, entry);
    for (const std::string& directory : made) {
        AddDirectoryOf(directory, entry);
    }
}

void touched_directories_t::AddDirectoryOf(std::string_view name, std::uint64_t entry) {
    const std::size_t slash = name.rfind('/');
    entriesOf_[std::string(name.substr(0, slash == std::string_view::npos ? 0 : slash))].push_back(entry);
}

std::vector<touched_directories_t::failure_t> touched_directories_t::Sync(const confined_root_t& root) {
    std::vector<failure_t> failures;
    for (auto& [name, entries] : entriesOf_) {
        try {
            const posix::unique_fd_t directory = name.empty() ? root.OpenTop() : root.OpenDirectory(name);
            SyncDescriptor(directory.get(), root.Shown(name));
        } catch (const std::exception& error) {
            failures.push_back({exc::MessageOf(error), std::move(entries)});
        }
    }
    entriesOf_.clear();
    return failures;
}

}  // namespace agent
