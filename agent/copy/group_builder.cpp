#include "agent/copy/group_builder.h"

#include <algorithm>
#include <exception>
#include <utility>
#include <vector>

#include "agent/batch/batch_folder.h"
#include "agent/batch/batch_format.h"
#include "mirrowen/logging/log_exc.h"

namespace agent::copy {

static_assert(group_keeper_t::kMaxItems <= batch::kMaxBatchEntries, "a batch may be a whole group");

group_builder_t::group_builder_t(const copy_options_t& options, item_sink_t& sink, gathering_t gathering)
    : options_(options),
      sink_(sink),
      copy_(guid::guid_t::Create()),
      gathering_(gathering),
      lane_(options, sink, copy_, gathering.batches ? group_lane_t::EJobs::eBeside : group_lane_t::EJobs::eAtOnce) {
    if (gathering.batches) {
        batch::RemoveAbandonedFolders();
    }
}

group_builder_t::~group_builder_t() = default;

bool group_builder_t::TakesIntoBatch(const item_t& item, std::uint64_t size) {
    return gathering_.batches && batch::batch_packer_t::Takes(item) &&
           size <= std::min(options_.batchLimit, batch::kMaxBatchFile) && OpenPacker();
}

bool group_builder_t::OpenPacker() {
    try {
        if (!packer_) {
            packer_ = std::make_unique<batch::batch_packer_t>();
        }
        return true;
    } catch (const std::exception& error) {
        logging::LogExc(error, "Items are sent one by one.");
        gathering_.batches = false;
        return false;
    }
}

void group_builder_t::Mark(item_t& item, bool deferred) const {
    item.copy = copy_;
    item.unsynced = options_.durability == EDurability::eNone;
    item.deferred = deferred;
    item.entry = deferred ? group_.NextNumber() : 0;
}

void group_builder_t::Pack(const item_t& item, const whole_content_t& content, std::uint64_t size) {
    item_t packed = item;
    packed.path = sink_.PathInBatch(item.path);
    packer_->Add(packed, content.Extents(), size);
    ++packed_;
}

void group_builder_t::MakeRoom() {
    FlushBatch();
    lane_.Drain();
}

void group_builder_t::CommitIfDue() {
    if (packer_ && packer_->IsFull()) {
        FlushBatch();
    }
    if (group_.IsDue()) {
        HandOver();
    }
}

void group_builder_t::Commit() {
    HandOver();
    lane_.Drain();
}

void group_builder_t::HandOver() {
    FlushBatch();
    EndGroup();
}

void group_builder_t::FlushBatch() {
    if (!packer_ || packer_->IsEmpty()) {
        return;
    }
    try {
        lane_.Put(packer_->Finish());
    } catch (const std::exception& error) {
        logging::LogExc(error, "A batch could not be written. Its items, and those that follow, are sent one by one.");
        unsent_ = group_.TakeBack(packed_);
        packer_.reset();
        gathering_.batches = false;
    }
    packed_ = 0;
    if (!gathering_.groups) {
        EndGroup();
    }
}

void group_builder_t::EndGroup() {
    if (std::vector<sent_item_t> items = group_.Take(); !items.empty()) {
        lane_.Commit(std::move(items));
    }
}

}  // namespace agent::copy
