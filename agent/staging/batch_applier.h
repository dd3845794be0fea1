#pragma once

#include <memory>
#include <string>

#include "agent/meta/item_meta.h"
#include "agent/meta/item_warnings.h"
#include "agent/staging/copy_group.h"
#include "agent/staging/received_batch.h"
#include "agent/staging/staging.h"
#include "mirrowen/util/file_info_apply.h"

namespace agent {

/// Makes entries of a batch what single deferred items would have become, with as few system calls as that takes:
/// files and links are staged with their attributes, directories only kept for the commit. What is at an entry's path
/// is not looked at before the commit. One thread.
class batch_applier_t {
  public:
    batch_applier_t(std::shared_ptr<staging_t> staging, group_slot_t place, EReplace replace, util::EOwnerSource owner);

    /// Puts the entry into the group, with its warnings. One that fails is put with the reason instead; its path is
    /// refused here, too. What cannot even be put is logged, and missed by the commit. Takes what it needs of the
    /// entry.
    void Apply(batch_entry_t& entry) const noexcept;

  private:
    group_entry_t Stage(batch_entry_t& entry) const;
    group_entry_t StageFile(const batch_entry_t& entry, const std::shared_ptr<item_warnings_t>& warnings) const;
    group_entry_t StageLink(const item_t& item, const std::shared_ptr<item_warnings_t>& warnings) const;
    void PutFault(const item_t& item, const std::string& fault) const;

    const std::shared_ptr<staging_t> staging_;
    const group_slot_t place_;
    const EReplace replace_;
    const util::EOwnerSource owner_;
    const EInherited inherited_;  ///< by what is staged
};

}  // namespace agent
