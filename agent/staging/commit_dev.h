#pragma once

#include <memory>
#include <string>
#include <vector>

#include "agent/staging/copy_groups.h"
#include "agent/staging/item_dev.h"

namespace agent {

/// Receives the commit of a copy: gives the entries of its group their names.
class commit_dev_t final : public item_dev_t {
  public:
    commit_dev_t(std::shared_ptr<staging_t> staging, std::shared_ptr<copy_groups_t> groups, item_t item);
    ~commit_dev_t() override;

    /// Takes the copy's group, once its batches were worked on. It must have the entries 0 to n-1 where n is the item's
    /// entry number: otherwise the group is dropped with `exc::CRuntimeExc` "Copy [%1] has [%2] of [%3] entries to
    /// commit.". Entries beyond them, whose acknowledgement did not reach the sender, are dropped. Then all that is
    /// staged goes to the storage
    /// ("Failed to sync [%1]" with the group dropped), every entry gets its name in order, and every directory that was
    /// touched goes to the storage, once. An entry that fails is reported, see kEntryFailed, and the others go on. With
    /// an unsynced item nobody waits for the storage.
    void Finish(std::shared_ptr<synch::completion_port_t> port) override;

    /// The entries that failed, then what could not be applied to directories and to entries that came in batches; each
    /// report has the number of its entry.
    std::vector<brannock::transmission::entry_report_t> TakeEntryReports() override;

  private:
    copy_group_t::entries_t TakeEntries();
    void SyncStaged(const copy_group_t& group, const copy_group_t::entries_t& entries) const;
    void Place(group_entry_t& entry, touched_directories_t& touched) const;
    void PlaceAll(copy_group_t::entries_t& entries, touched_directories_t& touched);
    void SyncPlaced(const copy_group_t::entries_t& entries, touched_directories_t& touched);
    void Fail(const item_t& item, const std::string& text);
    void MakeDirectory(group_entry_t& entry, touched_directories_t& touched) const;
    void TakeWarnings(group_entry_t& entry);

    const std::shared_ptr<copy_groups_t> groups_;
    std::shared_ptr<copy_group_t> group_;
    std::vector<brannock::transmission::entry_report_t> failures_;
    std::vector<brannock::transmission::entry_report_t> entryWarnings_;
    bool reportsTaken_ = false;
};

}  // namespace agent
