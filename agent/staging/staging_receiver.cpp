#include "agent/staging/staging_receiver.h"

#include <utility>

#include "agent/staging/commit_dev.h"
#include "agent/staging/directory_dev.h"
#include "agent/staging/file_dev.h"
#include "agent/staging/group_batch.h"
#include "agent/staging/hard_link_dev.h"
#include "agent/staging/link_dev.h"

namespace agent {

staging_receiver_t::staging_receiver_t(std::shared_ptr<staging_t> staging, util::EOwnerSource owner,
                                       std::chrono::milliseconds keepGroups)
    : staging_(std::move(staging)), owner_(owner), groups_(std::make_shared<copy_groups_t>(keepGroups)) {}

staging_receiver_t::~staging_receiver_t() = default;

std::shared_ptr<io::area::area_write_dev_t> staging_receiver_t::Receive(item_t item, std::uint64_t size,
                                                                        EReplace replace) {
    if (owner_ == util::EOwnerSource::eNumber) {
        item.info.owner.name.clear();
        item.info.group.name.clear();
    }
    groups_->DropUnused();
    group_slot_t slot = item.deferred ? groups_->Open(item, staging_->GetFolder()) : group_slot_t();
    switch (item.kind) {
        case EItemKind::eDirectory:
            return std::make_shared<directory_dev_t>(staging_, std::move(item), replace, std::move(slot));
        case EItemKind::eLink:
            return std::make_shared<link_dev_t>(staging_, std::move(item), replace, std::move(slot));
        case EItemKind::eHardLink:
            return std::make_shared<hard_link_dev_t>(staging_, std::move(item), replace, std::move(slot));
        case EItemKind::eCommit:
            return std::make_shared<commit_dev_t>(staging_, groups_, std::move(item));
        default:
            return std::make_shared<file_dev_t>(staging_, std::move(item), size, replace, std::move(slot));
    }
}

std::shared_ptr<IBatchReceiver> staging_receiver_t::ReceiveBatch(const guid::guid_t& copy) {
    groups_->DropUnused();
    return std::make_shared<group_batch_t>(staging_, groups_->OpenBatch(copy, staging_->GetFolder()), owner_);
}

}  // namespace agent
