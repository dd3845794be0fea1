#pragma once

#include <memory>

#include "agent/copy/content_hasher.h"
#include "agent/copy/copy.h"
#include "agent/copy/loaded_item.h"

namespace agent::copy {

/// Puts around the source of `loaded` what has to see its content on the way: with `options.verify` or `options.strict`
/// a file that is written to meanwhile fails, and with `options.verify` a file is hashed. Returns the hasher, `begun`
/// if there is one that knows the bytes before; nothing when nobody wants the digest.
std::shared_ptr<content_hasher_t> WatchContent(loaded_item_t& loaded, const copy_options_t& options,
                                               const std::shared_ptr<content_hasher_t>& begun);

}  // namespace agent::copy
