#pragma once

#include <memory>
#include <string>
#include <vector>

#include "agent/meta/item_warnings.h"
#include "agent/root/rename_at.h"
#include "agent/staging/copy_group.h"
#include "agent/staging/staged_entry.h"
#include "agent/staging/staging.h"
#include "agent/staging/touched_directories.h"
#include "agent/token/item.h"
#include "brannock/transmission/entry_reports.h"
#include "mirrowen/io/area/area_write_dev.h"

namespace agent {

/// What the write devices of all kinds of items share. Nothing is visible below the root before `Finish`, of a deferred
/// item not before the commit of its copy; a device that is destroyed unfinished leaves nothing behind. Driven by one
/// thread at a time, not always the one that made it.
///
/// Warnings go to the collector that the creating thread had. Without one the device keeps them for the far end of the
/// transfer, which asks after the last write; what nobody asked for is logged when the device goes.
class item_dev_t : public io::area::area_write_dev_t, public brannock::transmission::IEntryReporter {
  public:
    ~item_dev_t() override;

    /// The item's path below the root, as messages name it.
    std::string GetDisplayName() override;
    /// Throws `exc::CNotImplExc`: bare bytes are not taken.
    void Write(std::shared_ptr<io::area::area_t> area) override;
    /// For the kinds without content: an area with blocks or bytes is refused, `exc::CRuntimeExc` "An item of kind [%1]
    /// takes no content: [%2].".
    void Write(std::shared_ptr<io::area::IArea> area) override;

    /// The warnings that this device keeps, each once; the kind is that of `util::EMetaProblem`.
    std::vector<brannock::transmission::entry_report_t> TakeEntryReports() override;

  protected:
    /// `slot`: the item's place in its copy's group when it waits for a commit.
    item_dev_t(std::shared_ptr<staging_t> staging, item_t item, EReplace replace, group_slot_t slot = {});

    const confined_root_t& Root() const noexcept { return staging_->GetRoot(); }
    std::string Shown() const { return Root().Shown(item_.path); }
    bool IsDeferred() const noexcept { return slot_.group != nullptr; }
    /// Whether somebody waits for the storage.
    ESync Sync() const noexcept { return item_.unsynced ? ESync::eNo : ESync::eYes; }
    /// Leaves the item to its group; only once.
    void Defer(std::unique_ptr<staged_entry_t> staged, std::shared_ptr<posix::posix_file_t> file = nullptr);
    /// Makes what was touched durable unless nobody waits for it. Throws `exc::CRuntimeExc` with the text of the first
    /// failure.
    void SyncTouched(touched_directories_t& touched) const;
    const std::shared_ptr<item_warnings_t>& Warnings() const noexcept { return warnings_; }
    /// Applies the item's attributes to what `fd` has open, when there are any; see ApplyMeta.
    void ApplyAttributes(int fd) const;
    /// Likewise to the link `name` in the directory `dirFd`; see ApplyLinkMeta.
    void ApplyLinkAttributes(int dirFd, const std::string& name) const;

    const std::shared_ptr<staging_t> staging_;
    const item_t item_;
    const EReplace replace_;

  private:
    const group_slot_t slot_;
    const std::shared_ptr<item_warnings_t> warnings_;
    const bool keepsWarnings_;
    bool warningsTaken_ = false;
};

}  // namespace agent
