#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>

#include "agent/tree/object_brief.h"

namespace agent::copy {

/// Remembers where the first name of a file that has several went, so that the others become links to it. A file is
/// forgotten when all its names were seen, so memory grows with the files whose other names are still to come. One
/// thread.
class link_keeper_t {
  public:
    /// Where the first name of a file went.
    struct first_t {
        std::string target;
        /// Of a first name that was left alone, because it is unchanged: what lies at `target`.
        std::optional<object_brief_t> there;
    };

    /// Whether the file has other names, so that it concerns this object at all.
    static bool HasOthers(const object_brief_t& file) noexcept {
        return file.kind == EEntryKind::eFile && file.links > 1;
    }

    /// The first name of the file, when there is one that arrived; `file` is one more of its names.
    std::optional<first_t> See(const object_brief_t& file);
    /// The name that See was last told of went to `first`: later ones become links to it.
    void Keep(const object_brief_t& file, first_t first);
    /// What went to `target` did not arrive after all: the next name of the file is the first again.
    void Drop(const object_brief_t& file, const std::string& target);

    std::size_t Size() const noexcept { return files_.size(); }

  private:
    struct file_t {
        std::uint64_t namesLeft = 0;
        std::optional<first_t> first;
    };
    using inode_t = std::pair<std::uint64_t, std::uint64_t>;
    static inode_t InodeOf(const object_brief_t& file) noexcept { return {file.device, file.inode}; }

    std::map<inode_t, file_t> files_;
};

}  // namespace agent::copy
