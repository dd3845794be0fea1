#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "agent/copy/content_hasher.h"
#include "agent/copy/item_sink.h"
#include "agent/copy/item_source.h"
#include "agent/copy/loaded_item.h"

namespace agent::copy {

/// Files of this many bytes and more are kept when their copy breaks off, and gone on with by the next.
inline constexpr std::uint64_t kResumableBytes = std::uint64_t{8} << 20;

/// A file that has been loaded anew to deliver only what its receiver does not have.
struct resumption_t {
    loaded_item_t loaded;
    std::shared_ptr<content_hasher_t> hasher;  ///< knows the bytes that the receiver has
};

/// Makes the file `loaded`, which nobody has read from, ready to be gone on with: when the sink keeps its first bytes,
/// and their digest is that of the source's own, the item begins behind them; otherwise, also when the sink cannot be
/// asked, with the first. Throws what reading the source throws.
resumption_t Resume(item_sink_t& sink, item_source_t& tree, const tree_entry_t& entry, loaded_item_t loaded,
                    load_options_t options);

}  // namespace agent::copy
