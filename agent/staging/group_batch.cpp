#include "agent/staging/group_batch.h"

#include <utility>

#include "agent/staging/batch_applier.h"

namespace agent {

namespace {

/// The content goes last: whoever hears of its end finds the group unused.
struct batch_job_t {
    std::shared_ptr<received_batch_t> batch;
    std::shared_ptr<staging_t> staging;
    group_slot_t place;
    util::EOwnerSource owner;

    void operator()() const {
        const batch_applier_t applier(staging, place, batch->replace, owner);
        for (batch_entry_t& entry : batch->entries) {
            applier.Apply(entry);
        }
    }
};

}  // namespace

group_batch_t::group_batch_t(std::shared_ptr<staging_t> staging, batch_slot_t slot, util::EOwnerSource owner)
    : staging_(std::move(staging)), slot_(std::move(slot)), owner_(owner) {}

group_batch_t::~group_batch_t() = default;

void group_batch_t::Apply(received_batch_t batch) {
    slot_.lane->Post(batch_job_t{std::make_shared<received_batch_t>(std::move(batch)), staging_, slot_.place, owner_});
}

}  // namespace agent
