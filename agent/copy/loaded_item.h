#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "agent/token/item.h"
#include "mirrowen/io/area/area_read_dev.h"

namespace agent::copy {

/// An item ready to be put: what it is, where its content comes from and how much there is.
struct loaded_item_t {
    item_t item;
    std::shared_ptr<io::area::area_read_dev_t> source;  ///< always there; delivers nothing for directories and links
    std::uint64_t size = 0;                             ///< of the whole content; 0 for unknown or none
    /// Whether the content was written to while it was read, as far as the source can tell; to be asked when all of it
    /// has been read. Empty where nobody can tell.
    std::function<bool()> hasChanged;
};

}  // namespace agent::copy
