#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "agent/meta/item_warnings.h"
#include "agent/root/rename_at.h"
#include "agent/staging/staged_entry.h"
#include "agent/token/item.h"
#include "mirrowen/posix/posix_file.h"
#include "mirrowen/synch/mutex.h"

namespace agent {

/// An item that waits for the commit of its copy.
struct group_entry_t {
    item_t item;
    EReplace replace = EReplace::eNo;
    std::unique_ptr<staged_entry_t> staged;     ///< what gets its name; none for directories and hard links
    std::shared_ptr<posix::posix_file_t> file;  ///< a file's content while the group is small; see IsSmall
    std::string fault{};                        ///< why there is nothing to place; an entry of a batch that failed
    std::vector<item_warning_t> warnings{};     ///< of an entry of a batch: nobody has asked for them yet
};

/// The items of one copy that were received and wait for its commit. What is staged goes with the group. Any thread.
class copy_group_t {
  public:
    using entries_t = std::map<std::uint64_t, group_entry_t>;

    /// A group of more files is made durable by one syncfs, a smaller one file by file.
    static constexpr std::size_t kMaxOpenFiles = 8;
    /// Bytes of paths, attributes, faults and warnings that a group keeps.
    static constexpr std::size_t kMaxBytes = std::size_t{8} << 20;

    /// `fileSystem`: a descriptor on the file system, opened before the first entry is written, so that its syncfs
    /// tells of every failure since.
    explicit copy_group_t(posix::unique_fd_t fileSystem);

    /// A device that will put an entry asks for a ticket when it is made.
    std::uint64_t NewTicket();

    /// Keeps an entry under the number in its item. One that is there already under it makes way (its sender never
    /// heard of it), unless its device was made later. Throws `exc::CRuntimeExc` "The group of copy [%1] has more than
    /// [%2] bytes of paths and attributes.".
    void Put(group_entry_t entry, std::uint64_t ticket);

    /// The entries, which are the caller's from now on. Nothing may be put any more.
    entries_t Take();

    /// Whether no file of the group was closed before its commit, so that each can be made durable by itself.
    bool IsSmall() const;
    int GetFileSystem() const noexcept { return fileSystem_.get(); }

  private:
    struct kept_t {
        group_entry_t entry;
        std::uint64_t ticket = 0;
        std::size_t bytes = 0;
    };
    void CloseFiles() REQUIRES(mutex_);

    const posix::unique_fd_t fileSystem_;
    mutable synch::mutex_t mutex_;
    std::map<std::uint64_t, kept_t> kept_ GUARDED_BY(mutex_);
    std::uint64_t tickets_ GUARDED_BY(mutex_) = 0;
    std::size_t bytes_ GUARDED_BY(mutex_) = 0;
    std::size_t openFiles_ GUARDED_BY(mutex_) = 0;
    bool small_ GUARDED_BY(mutex_) = true;
};

/// A device's place in its copy's group; an empty one says that the item does not wait for a commit.
struct group_slot_t {
    std::shared_ptr<copy_group_t> group;
    std::uint64_t ticket = 0;
};

}  // namespace agent
