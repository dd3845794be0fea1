#include "agent/copy/item_sink.h"

#include "mirrowen/exc/not_impl_exc.h"

namespace agent::copy {

item_sink_t::~item_sink_t() = default;

std::string item_sink_t::PathInBatch(const std::string& path) const {
    return path;
}

void item_sink_t::PutBatch(const batch::batch_t& /*batch*/, bool /*overwrite*/) {
    throw exc::CNotImplExc("item_sink_t", "PutBatch");
}

void item_sink_t::Begin() {}

}  // namespace agent::copy
