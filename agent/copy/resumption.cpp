#include "agent/copy/resumption.h"

#include <exception>
#include <optional>
#include <utility>

#include "mirrowen/logging/log_exc.h"

namespace agent::copy {

namespace {

bool is_same_file(const loaded_item_t& left, const loaded_item_t& right) {
    return left.size == right.size && left.item.info.modificationTime == right.item.info.modificationTime;
}

// A receiver that cannot be asked (it may have no session left) can still be sent the whole file.
std::optional<partial_t> find_kept(item_sink_t& sink, const loaded_item_t& loaded) {
    try {
        return sink.FindPartial(loaded.item.path, loaded.item.info.size, loaded.item.info.modificationTime);
    } catch (const std::exception& error) {
        logging::LogExc(error, "What is kept of a file could not be asked for.");
        return std::nullopt;
    }
}

}  // namespace

resumption_t Resume(item_sink_t& sink, item_source_t& tree, const tree_entry_t& entry, loaded_item_t loaded,
                    load_options_t options) {
    loaded.item.resumable = true;
    const std::optional<partial_t> kept = find_kept(sink, loaded);
    if (!kept || kept->length == 0 || kept->length > loaded.size) {
        return {std::move(loaded), std::make_shared<content_hasher_t>()};
    }
    auto hasher = std::make_shared<content_hasher_t>();
    HashFirst(*loaded.source, kept->length, *hasher);
    const bool same = hasher->Get() == query::content_digest_t{kept->length, kept->digest};
    std::vector<copy_note_t> known;  // they were told when the file was first loaded
    options.startOffset = same ? kept->length : 0;
    loaded_item_t rest = tree.Load(entry, loaded.item.path, options, known);
    if (!same || !is_same_file(loaded, rest)) {
        hasher = std::make_shared<content_hasher_t>();
        if (same) {
            rest = tree.Load(entry, loaded.item.path, {options.blockSize}, known);
        }
    }
    rest.item.resumable = true;
    return {std::move(rest), std::move(hasher)};
}

}  // namespace agent::copy
