#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "agent/root/confined_root.h"
#include "agent/staging/partial.h"
#include "agent/staging/partial_store.h"
#include "mirrowen/posix/unique_fd.h"

namespace agent {

/// Who else may use the staging folder at the same time.
enum class EStagingUse {
    eAlone,   ///< nobody: a server
    eShared,  ///< others who share it: copies on this machine
};

struct staging_options_t {
    EStagingUse use = EStagingUse::eAlone;
    std::chrono::seconds keepPartial = std::chrono::hours(7 * 24);  ///< files that may be resumed; 0 keeps none
};

/// The staging folder at the top of a root, and this process's right to it.
///
/// What a peer sends is written here under a random name, gets its attributes and is synced; only then is it renamed to
/// its own name, so nobody ever sees half a file and what is replaced is replaced in one step. The folder is made with
/// mode 0700 and removed with the last object when it is empty. It belongs to one server or to any number of copies at
/// a time.
///
/// All staged names of one object lie in a folder of its own, whose random name was put in the journal, durably, before
/// it was made. Whoever holds the lock alone removes what the journal names, so what a process left when it crashed
/// goes with the next start; anything else in the folder is left alone, with a warning.
/// Files that may be resumed stay over the end of the process until they are old.
///
/// Any thread may call.
class staging_t {
  public:
    /// Makes or takes over the folder. Throws `exc::CRuntimeExc` "Staging folder [%1] is in use by another process.",
    /// "Staging folder [%1] belongs to another user.", or `posix::errno_exc_t` "Failed to open staging folder [%1]"
    /// (ENOTDIR for a link or a file in its place); errors of the journal.
    explicit staging_t(std::shared_ptr<const confined_root_t> root, staging_options_t options = {});
    /// Leaves no folder behind when nothing else is in it.
    ~staging_t();
    staging_t(const staging_t&) = delete;
    staging_t& operator=(const staging_t&) = delete;

    const confined_root_t& GetRoot() const noexcept { return *root_; }
    /// The folder for this object's staged names, as a root of its own; the names are made by NewStagingName.
    const confined_root_t& GetFolder() const noexcept { return *run_; }

    /// What is kept of a file that was to get the name `path` below the root with this size and modification time; it
    /// is read as a whole. A transfer that is writing it is waited for, five seconds at most. Nothing when none is kept
    /// or it is still being written.
    std::optional<partial_t> FindPartial(const std::string& path, std::uint64_t size,
                                         const util::SFileTime& modified) const;
    /// Where such files are kept.
    partial_store_t& GetPartials() noexcept { return *partials_; }

  private:
    bool TryTake();
    bool TryBegin(posix::unique_fd_t folder, bool alone);
    bool Lock(int fd, int operation) const;
    void BeginRun();
    void RemoveFolder() const;

    const std::shared_ptr<const confined_root_t> root_;
    const staging_options_t options_;
    std::unique_ptr<confined_root_t> folder_;
    std::unique_ptr<partial_store_t> partials_;
    std::unique_ptr<confined_root_t> run_;
    std::string runName_;
    posix::unique_fd_t lock_;
};

}  // namespace agent
