#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "agent/root/confined_root.h"

namespace agent {

/// The directories whose entries were changed and are not durable yet, and by which entries of a group. One thread.
class touched_directories_t {
  public:
    /// The directory in which `name` lies, and that of each directory that was made on the way to it.
    void Add(std::string_view name, const std::vector<std::string>& made, std::uint64_t entry);
    /// Somebody has made the directory `name` durable.
    void Forget(const std::string& name) { entriesOf_.erase(name); }

    struct failure_t {
        std::string text;
        std::vector<std::uint64_t> entries;  ///< those whose names are perhaps not durable
    };
    /// fsync of each directory, once; goes on after a failure.
    std::vector<failure_t> Sync(const confined_root_t& root);

  private:
    void AddDirectoryOf(std::string_view name, std::uint64_t entry);

    std::map<std::string, std::vector<std::uint64_t>> entriesOf_;  ///< by name; "" is the root
};

}  // namespace agent
