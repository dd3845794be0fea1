#pragma once

#include <cstdint>
#include <memory>

#include "agent/root/rename_at.h"
#include "agent/staging/received_batch.h"
#include "agent/token/item.h"
#include "mirrowen/guid/guid.h"
#include "mirrowen/io/area/area_write_dev.h"

namespace agent {

/// Who takes the items that a peer sends: a server puts them below its root, a client that asked for one takes just
/// that. Each implementation says which threads may call.
class IItemReceiver {
  public:
    virtual ~IItemReceiver();

    /// The device that takes `item`; its `Finish` makes the item what it is to be. `size`: bytes of the whole content,
    /// also when the item starts later in it; 0 when unknown or none. An item that is not taken is refused here by an
    /// exception, before anything is sent; one whose path is taken already, with `eNo`, by `exc::CAlreadyExistsExc`.
    /// The device may outlive the receiver.
    virtual std::shared_ptr<io::area::area_write_dev_t> Receive(item_t item, std::uint64_t size, EReplace replace) = 0;

    /// Who takes the next batch of the copy; may outlive the receiver. Refuses as above. A receiver that takes no
    /// batches throws `exc::CRuntimeExc` "Batches are not received here.".
    virtual std::shared_ptr<IBatchReceiver> ReceiveBatch(const guid::guid_t& copy);
};

}  // namespace agent
