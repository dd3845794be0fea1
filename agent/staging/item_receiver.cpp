#include "agent/staging/item_receiver.h"

#include "mirrowen/exc/runtime_exc.h"

namespace agent {

IItemReceiver::~IItemReceiver() = default;

std::shared_ptr<IBatchReceiver> IItemReceiver::ReceiveBatch(const guid::guid_t& /*copy*/) {
    throw exc::CRuntimeExc("Batches are not received here.");
}

}  // namespace agent
