#include "agent/send/agent_tree.h"

#include <utility>

#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/util/numeric_cast.h"

namespace agent::send {

namespace {

EEntryKind KindOf(EItemKind kind) {
    return kind == EItemKind::eFile        ? EEntryKind::eFile
           : kind == EItemKind::eDirectory ? EEntryKind::eDirectory
                                           : EEntryKind::eLink;
}

std::string Join(const std::string& directory, const std::string& name) {
    return directory.empty() ? name : directory + "/" + name;
}

}  // namespace

agent_tree_t::agent_tree_t(net::endpoint_t endpoint, net::remote_options_t options,
                           io::block::EBufTransformType compression)
    : endpoint_(std::move(endpoint)),
      options_(std::move(options)),
      compression_(compression),
      sends_(endpoint_, options_) {}

agent_tree_t::~agent_tree_t() = default;

std::string agent_tree_t::Shown(const std::string& name) const {
    return ToString(location_t{true, endpoint_, name});
}

std::optional<tree_entry_t> agent_tree_t::TryExamine(const std::string& name) {
    std::optional<object_brief_t> brief = std::move(Query().Examine({name}).front());
    if (!brief) {
        return std::nullopt;
    }
    return tree_entry_t{name, *std::move(brief), ""};
}

std::vector<tree_entry_t> agent_tree_t::List(const std::string& directory) {
    std::vector<tree_entry_t> entries;
    for (query::listed_object_t& listed : Query().List(directory)) {
        entries.push_back({Join(directory, listed.name), std::move(listed.brief), std::move(listed.fault)});
    }
    return entries;
}

copy::loaded_item_t agent_tree_t::Load(const tree_entry_t& entry, const std::string& target,
                                       const copy::load_options_t& options, std::vector<copy::copy_note_t>& warnings) {
    const auto file = sends_.Open({.path = entry.name.empty() ? kRootName : entry.name,
                                   .startOffset = options.startOffset,
                                   .blockSize = util::numeric_cast<std::uint32_t>(options.blockSize),
                                   .compression = compression_});
    copy::loaded_item_t loaded;
    loaded.item = file->GetAnnounced().item;
    const EEntryKind kind = KindOf(loaded.item.kind);
    if (kind != entry.brief.kind) {
        throw exc::CRuntimeExc("[%1] is a %2 now, no longer a %3.", Shown(entry.name), NameOfKind(kind),
                               NameOfKind(entry.brief.kind));
    }
    loaded.item.path = target;
    loaded.source = file;
    loaded.size = kind == EEntryKind::eFile ? loaded.item.info.size : 0;
    loaded.hasChanged = [file] { return file->HasChanged(); };
    warnings.insert(warnings.end(), file->GetNotes().begin(), file->GetNotes().end());
    return loaded;
}

// A long file leaves the query connection alone for so long that the far end may have ended it.
query::query_client_t& agent_tree_t::Query() {
    if (!query_ || !query_->IsUsable()) {
        query_ = std::make_unique<query::query_client_t>(endpoint_, options_);
    }
    return *query_;
}

}  // namespace agent::send
