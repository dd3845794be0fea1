#pragma once

#include <memory>
#include <optional>
#include <string>

#include "agent/copy/item_source.h"
#include "agent/net/remote_options.h"
#include "mirrowen/io/block/buf_transform.h"

namespace agent::copy {

/// The start of a walk that a person named.
struct opened_tree_t {
    std::shared_ptr<item_source_t> tree;
    std::string top;       ///< the object in `tree`; empty for the root itself
    std::string baseName;  ///< the object's name as the path ends; empty where it has none (".", "..", "/")
};

/// The tree that `text` reaches: a host path, a path of the restore view, or a location of another agent
/// ("tarn://HOST:PORT/PATH"), which is talked to as `remote` says and packs what it sends by `compression`. Links on
/// the way to the object are followed, in a view inside the view; the object itself is not, unless the path ends in
/// '/'. At another agent no link is followed. Nothing for a path of another form. Throws when there is nothing at the
/// path, naming it, and what keeps it from being opened.
std::optional<opened_tree_t> TryOpenTree(const std::string& text, const net::remote_options_t& remote,
                                         io::block::EBufTransformType compression);

}  // namespace agent::copy
