#include "agent/copy/view_tree.h"

#include <exception>
#include <utility>

#include "agent/tree/opened_place.h"
#include "tarn/flr/flrfs_operations.h"
#include "tarn/flr/view_resolver.h"

namespace agent::copy {

namespace {

std::string join(const std::string& directory, const std::string& name) {
    return directory.empty() || name.empty() ? directory + name : directory + "/" + name;
}

/// A path of this machine with one more component.
std::string below(const std::string& path, const std::string& name) {
    return path + (path.ends_with('/') ? "" : "/") + name;
}

struct split_name_t {
    std::string parent;
    std::string last;
};

split_name_t split_last(const std::string& name) {
    const std::size_t slash = name.rfind('/');
    if (slash == std::string::npos) {
        return {"", name};
    }
    return {name.substr(0, slash), name.substr(slash + 1)};
}

}  // namespace

view_tree_t::view_tree_t(std::shared_ptr<const tarn::CFLRContext> rules) : rules_(std::move(rules)) {}

view_tree_t::~view_tree_t() = default;

std::string view_tree_t::Shown(const std::string& name) const {
    return tarn::flrfs_operations_t::GetFlrFsPrefix() + "/" + name;
}

std::optional<tree_entry_t> view_tree_t::TryExamine(const std::string& name) {
    const place_t place = Locate(name);
    std::optional<tree_entry_t> entry = TreeOf(place.root).TryExamine(place.inner);
    if (entry) {
        entry->name = name;
    }
    return entry;
}

std::vector<tree_entry_t> view_tree_t::List(const std::string& directory) {
    const place_t place = Locate(directory);
    std::vector<tree_entry_t> entries = TreeOf(place.root).List(place.inner);
    for (tree_entry_t& entry : entries) {
        std::string name = join(directory, split_last(entry.name).last);
        if (Locate(name).root != place.root) {
            // A mount point: what is mounted there, not the directory under it.
            try {
                if (auto mounted = TryExamine(name)) {
                    entry = *std::move(mounted);
                }
            } catch (const std::exception& error) {
                entry.fault = error.what();
            }
        }
        entry.name = std::move(name);
    }
    return entries;
}

loaded_item_t view_tree_t::Load(const tree_entry_t& entry, const std::string& target, const load_options_t& options,
                                std::vector<copy_note_t>& warnings) {
    const place_t place = Locate(entry.name);
    tree_entry_t inner = entry;
    inner.name = place.inner;
    return TreeOf(place.root).Load(inner, target, options, warnings);
}

// A rule maps what is below its mount point by putting the rest behind its directory. So as long as the parent's path
// with the last component is the path itself, both are the same rule's, and the walk up ends at the rule's directory.
view_tree_t::place_t view_tree_t::Locate(const std::string& name) const {
    place_t place;
    std::string view = name;
    place.root = tarn::view_resolver_t::MapExc(*rules_, "/" + view);
    while (!view.empty()) {
        split_name_t parts = split_last(view);
        std::string parent;
        if (!rules_->TryMapPath("/" + parts.parent, parent) || below(parent, parts.last) != place.root) {
            break;
        }
        place.inner = join(parts.last, place.inner);
        place.root = std::move(parent);
        view = std::move(parts.parent);
    }
    return place;
}

host_tree_t& view_tree_t::TreeOf(const std::string& root) {
    std::unique_ptr<host_tree_t>& tree = trees_[root];
    if (!tree) {
        tree = std::make_unique<host_tree_t>(OpenPlainRoot(root));
    }
    return *tree;
}

}  // namespace agent::copy
