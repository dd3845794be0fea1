#include "agent/copy/watch_content.h"

#include "agent/copy/steady_source.h"

namespace agent::copy {

std::shared_ptr<content_hasher_t> WatchContent(loaded_item_t& loaded, const copy_options_t& options,
                                               const std::shared_ptr<content_hasher_t>& begun) {
    if (loaded.hasChanged && (options.verify || options.strict)) {
        loaded.source = std::make_shared<steady_source_t>(loaded.source, loaded.hasChanged);
    }
    if (!options.verify || loaded.item.kind != EItemKind::eFile) {
        return nullptr;
    }
    auto hasher = begun ? begun : std::make_shared<content_hasher_t>();
    loaded.source = std::make_shared<hashed_source_t>(loaded.source, hasher);
    return hasher;
}

}  // namespace agent::copy
