#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "agent/copy/item_source.h"
#include "agent/query/content_digest.h"
#include "agent/token/item.h"

namespace agent::copy {

/// What has to be known of an item after it was put, to say at last what became of it.
struct sent_item_t {
    EItemKind kind = EItemKind::eFile;
    std::string shown;  ///< the source, as messages name it
    std::string target;
    std::uint64_t bytes = 0;                        ///< of content
    bool counts = true;                             ///< in the report
    std::optional<query::content_digest_t> digest;  ///< of a file that is to be read back
    std::shared_ptr<item_source_t> tree;            ///< where the item came from; empty for a single file
    tree_entry_t entry;                             ///< in `tree`
};

}  // namespace agent::copy
