#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "agent/root/rename_at.h"
#include "agent/token/item.h"

namespace agent {

/// Bytes of a file that came in a batch.
struct batch_piece_t {
    std::uint64_t offset = 0;    ///< in the file
    std::span<const char> data;  ///< points into the batch's content; not empty
};

/// An item of a batch: deferred, a file, a directory or a link, with attributes.
struct batch_entry_t {
    item_t item;
    std::uint64_t size = 0;             ///< bytes of a file; what no piece has is a hole
    std::vector<batch_piece_t> pieces;  ///< ascending, not overlapping, within `size`
};

/// Many small items of one copy that came in one message and were judged as a whole.
struct received_batch_t {
    std::vector<batch_entry_t> entries;
    EReplace replace = EReplace::eNo;
    std::shared_ptr<const void> content;  ///< keeps what the pieces point into
};

/// Takes one batch of a copy. Used once; any thread, and not only the one that asked for it.
class IBatchReceiver {
  public:
    virtual ~IBatchReceiver() = default;

    /// Has every entry become what a single deferred item does: it waits in its copy's group for the commit. May return
    /// before that; the commit waits for it. An entry that fails is reported by the commit and the others go on.
    virtual void Apply(received_batch_t batch) = 0;
};

}  // namespace agent
