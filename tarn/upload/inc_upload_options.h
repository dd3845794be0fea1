#pragma once

#include <memory>

#include "mirrowen/digest/digests.h"

namespace tarn {

/// What a sender chooses for one item. A value.
struct inc_upload_options_t {
    /// The blocks change an existing file instead of making a new one.
    bool incremental = false;
    /// When set, the digest of every block that is sent is registered here.
    std::shared_ptr<digest::digests_t> digests;
};

}  // namespace tarn
