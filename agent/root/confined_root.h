#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "agent/root/name_rules.h"
#include "agent/root/rename_at.h"
#include "agent/root/resolver.h"
#include "mirrowen/posix/posix_file.h"
#include "mirrowen/posix/unique_fd.h"

namespace agent {

enum class EOrder { eRaw, eSorted };
enum class EParents { eMustExist, eMake };

/// A directory that is held open and the last component of a name in it: what the *at system calls take.
struct place_t {
    posix::unique_fd_t parent;  ///< opened with O_PATH
    std::string last;
};

/// Holds a directory and resolves every name below it, so that no name and no link, planted before or swapped in
/// between, leads out of it. The receiving side writes through it and the sending side reads its own tree through it.
///
/// Names are bytes, relative to the root, with '/' between components. Each operation first refuses what FindNameFault
/// refuses (`exc::CRuntimeExc` "Path [%1] is refused: %2."), then opens the directory in which the last component lies
/// without following any link (see EResolver), and works on the last component by a system call that does not follow a
/// link either. A link among the parents fails with ELOOP, a missing parent with ENOENT.
///
/// Errors, besides those of the single operations: `posix::errno_exc_t` with the operation, the name below the root's
/// own path, and the errno. A creation that finds something at its name throws `exc::CAlreadyExistsExc` "[%1] exists
/// already.". Nothing is kept between calls but the root's descriptor, so any thread may call at any time; what other
/// processes do to the tree meanwhile can make an operation fail but cannot lead it out.
class confined_root_t {
  public:
    /// Opens the directory at `path`, the operator's own word: links in it are followed. Throws "Failed to open
    /// directory [%1]".
    static std::shared_ptr<confined_root_t> Open(const std::string& path);

    /// Takes over `top`. `path` is what messages put before a name; "" and "." put nothing.
    confined_root_t(posix::unique_fd_t top, std::string path, EStagingFolder staging = EStagingFolder::eHidden);
    confined_root_t(const confined_root_t&) = delete;
    confined_root_t& operator=(const confined_root_t&) = delete;

    int GetDescriptor() const noexcept { return top_.get(); }
    EResolver GetResolver() const noexcept { return resolver_; }
    /// `name` as messages show it.
    std::string Shown(std::string_view name) const;

    /// Where `name` lies. With `eMake` missing parents are made, mode 0700, and each is made durable in its own parent.
    /// Throws "Failed to open the directory of [%1]", "Failed to create directory [%1]".
    place_t OpenParent(std::string_view name, EParents parents = EParents::eMustExist) const;
    /// As with `eMake`, but nothing is made durable: the names of the directories that were made are appended to
    /// `made`.
    place_t OpenParent(std::string_view name, std::vector<std::string>& made) const;

    /// Opens a regular file for reading, at its start. A link, directory, pipe or device is refused: `exc::CRuntimeExc`
    /// "[%1] is not a regular file."; otherwise "Failed to open file [%1]".
    std::shared_ptr<posix::posix_file_t> OpenFile(std::string_view name) const;
    /// Opens whatever is there, a link itself included, for its attributes only (O_PATH). "Failed to open [%1]".
    posix::unique_fd_t OpenObject(std::string_view name) const;
    /// Opens a directory for reading, for its attributes or for fsync. "Failed to open directory [%1]".
    posix::unique_fd_t OpenDirectory(std::string_view name) const;
    /// The root itself, likewise.
    posix::unique_fd_t OpenTop() const;

    /// Creates a file that was not there, mode 0600, empty, open for reading and writing. "Failed to create file [%1]".
    std::shared_ptr<posix::posix_file_t> CreateFile(std::string_view name) const;
    /// "Failed to create directory [%1]".
    void MakeDirectory(std::string_view name, mode_t mode = 0700) const;
    /// Makes a link that holds `target`, which is kept as it is and never resolved here. "Failed to create link [%1]";
    /// one with a NUL byte in it `exc::CRuntimeExc` "The target of link [%1] contains a NUL byte.".
    void MakeLink(const std::string& target, std::string_view name) const;

    /// The attributes of what is there, a link's own. "Failed to get attributes of [%1]".
    struct stat Stat(std::string_view name) const;
    /// As Stat; nothing when neither it nor, perhaps, its parent is there.
    std::optional<struct stat> TryStat(std::string_view name) const;
    /// The content of a link. "Failed to read link [%1]".
    std::string ReadLink(std::string_view name) const;
    /// The names in a directory, without "." and ".."; `eSorted` orders them byte by byte. The whole list is in memory.
    /// "Failed to list directory [%1]".
    std::vector<std::string> List(std::string_view name, EOrder order) const;
    /// The names in the root itself, without the staging folder.
    std::vector<std::string> ListTop(EOrder order) const;

    /// Removes a file or a link (never its target). "Failed to remove [%1]".
    void RemoveFile(std::string_view name) const;
    /// Removes an empty directory. "Failed to remove directory [%1]".
    void RemoveDirectory(std::string_view name) const;
    /// Renames within the root; see RenameAt.
    void Rename(std::string_view from, std::string_view to, EReplace replace) const;

  private:
    /// Where a name lies, as OpenParent finds it; at the top of the root nothing has to be opened for that.
    struct held_place_t {
        posix::unique_fd_t opened;
        int parent = -1;
        std::string last;
    };
    held_place_t FindPlace(std::string_view name) const;
    place_t MakeParents(std::string_view name, std::vector<std::string>* made) const;
    posix::unique_fd_t StepOrMake(int dir, std::string_view name, std::size_t start,
                                  std::vector<std::string>* made) const;
    [[noreturn]] void Throw(std::string_view format, std::string_view name, int error) const;

    const posix::unique_fd_t top_;
    const std::string path_;
    const EStagingFolder staging_;
    const EResolver resolver_;
};

/// The directory of `place`, opened so that SyncDescriptor can make its entries durable. Throws "Failed to open the
/// directory of [%1]" with `shown`.
posix::unique_fd_t OpenForSync(const place_t& place, const std::string& shown);

/// fsync of a descriptor, also of a directory's; `shown` is what "Failed to sync [%1]" names.
void SyncDescriptor(int fd, const std::string& shown);

}  // namespace agent
