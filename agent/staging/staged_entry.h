#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "agent/root/rename_at.h"
#include "agent/staging/staging.h"
#include "agent/staging/touched_directories.h"

namespace agent {

/// Whether somebody waits until the storage has it.
enum class ESync { eNo, eYes };

/// One name in the staging folder, and the promise that nothing stays there: what was made under it is removed with
/// this object unless it was committed. One thread at a time.
class staged_entry_t {
  public:
    /// Only chooses the name; the caller makes a file or link under it, in `staging->GetFolder()`.
    explicit staged_entry_t(std::shared_ptr<staging_t> staging);
    /// Never throws; what cannot be removed is logged and left for the next start.
    ~staged_entry_t();
    staged_entry_t(const staged_entry_t&) = delete;
    staged_entry_t& operator=(const staged_entry_t&) = delete;

    const std::string& GetName() const noexcept { return name_; }

    /// Gives the entry its own name below the root and, with `ESync::eYes`, makes that durable (fsync of the
    /// directory). Missing parents are made with mode 0700. With `EReplace::eNo` what is there, however late it came,
    /// is `exc::CAlreadyExistsExc`; with `eYes` a file or link is replaced in one step and a directory is refused
    /// ("Failed to rename to [%1]", EISDIR). EXDEV says that `target` lies on another file system than the staging
    /// folder. When the last step fails, the fsync, the entry has its name already.
    void Commit(std::string_view target, EReplace replace, ESync sync);

    /// Likewise as the entry `number` of a group, whose directories are made durable together later.
    void Commit(std::string_view target, EReplace replace, touched_directories_t& touched, std::uint64_t number);

  private:
    void Rename(const place_t& place, EReplace replace, const std::string& shown);

    const std::shared_ptr<staging_t> staging_;
    const std::string name_;
    bool committed_ = false;
};

/// Refuses early what Commit would refuse in the end, so that nothing is sent in vain. Throws `exc::CAlreadyExistsExc`
/// with `eNo` when anything is at `target`; with `eYes` `exc::CRuntimeExc` "[%1] is a directory and is not replaced.".
void CheckTarget(const confined_root_t& root, std::string_view target, EReplace replace);

}  // namespace agent
