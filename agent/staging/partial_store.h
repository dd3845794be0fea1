#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "agent/root/confined_root.h"
#include "agent/staging/partial.h"
#include "agent/staging/partial_file.h"
#include "agent/staging/staging_journal.h"
#include "mirrowen/synch/mutex.h"
#include "mirrowen/util/clock.h"
#include "mirrowen/util/file_info.h"

namespace agent {

/// The folder in the staging folder with the files that may be resumed.
inline constexpr const char* kPartialFolder = "partial";

/// Whether the file that `note` names is still to be kept: it is there and was written to within `keep`.
bool IsPartialKept(const confined_root_t& folder, const journal_note_t& note, std::chrono::seconds keep);

/// What came of files whose transfer broke off. Each is kept under a key made of what it was to become, so that only a
/// further transfer of the same file finds it; its length is what came. Any thread, and any number of processes.
class partial_store_t {
  public:
    enum class EJournal { eAppendOnly, eOurs };

    /// `folder`, the staging folder, must outlive this object. With `keep` 0 nothing is kept. With `eOurs` nobody else
    /// appends to the journal, so it can be written anew.
    partial_store_t(const confined_root_t& folder, std::chrono::seconds keep, EJournal journal);

    /// 32 hexadecimal digits.
    static std::string KeyOf(const std::string& path, std::uint64_t size, const util::SFileTime& modified);

    /// An empty file under the key; what was kept under it is gone. None when nothing is kept here or another transfer
    /// is at work under the key. Now and then it first removes what was kept too long. Throws errors of the journal and
    /// of making the file.
    std::unique_ptr<partial_file_t> Begin(const std::string& key);

    /// The file under the key, cut to `length`. None, with what is kept in `kept`, when it is shorter, not there or in
    /// work. Throws errors of opening and cutting.
    std::unique_ptr<partial_file_t> Continue(const std::string& key, std::uint64_t length, std::uint64_t& kept);

    /// What is kept under the key, read and digested. A transfer that is at work under the key is waited for, but no
    /// longer than five seconds: nothing then.
    std::optional<partial_t> Find(const std::string& key) const;

  private:
    std::shared_ptr<const confined_root_t> OpenFolder() const;
    std::unique_ptr<partial_file_t> TryOpen(const std::string& key) const;
    std::unique_ptr<partial_file_t> OpenWhenFree(const std::string& key) const;
    std::unique_ptr<partial_file_t> Make(const std::string& key);
    void DropOld();

    const confined_root_t& folder_;
    const std::chrono::seconds keep_;
    const EJournal journal_;
    synch::mutex_t mutex_;
    util::IClock::steady_point_t lookedAt_ GUARDED_BY(mutex_);
};

}  // namespace agent
