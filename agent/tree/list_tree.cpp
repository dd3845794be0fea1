#include "agent/tree/list_tree.h"

#include <memory>
#include <utility>

#include "agent/tree/walk_tree.h"
#include "mirrowen/util/str.h"
#include "tarn/lindir/search_mask.h"

namespace agent {

namespace {

class lister_t final : public tree_visitor_t {
  public:
    using tell_t = std::function<void(const tree_entry_t&)>;

    lister_t(std::string top, const std::string& mask, const tell_t& tell)
        : top_(std::move(top)),
          mask_(tarn::lindir::search_mask_t::FromWildcards(util::str_utf82w(mask))),
          tell_(tell) {}

    void OnEntry(const tree_entry_t& entry) override {
        const bool isTop = entry.name == top_ && entry.brief.kind == EEntryKind::eDirectory;
        if (!isTop && Passes(entry.name)) {
            tell_(entry);
        }
    }
    void OnDirectoryLeft(const tree_entry_t&) override {}
    void OnUnreadable(const std::string& name, const std::string& fault) override {
        tree_entry_t entry;
        entry.name = name;
        entry.fault = fault;
        tell_(entry);
    }

  private:
    bool Passes(const std::string& name) const {
        return mask_ == nullptr || mask_->Matches(name.substr(name.find_last_of('/') + 1));
    }

    const std::string top_;
    const std::shared_ptr<const tarn::lindir::search_mask_t> mask_;
    const tell_t& tell_;
};

void list_one_level(tree_source_t& tree, const std::string& top, lister_t& lister) {
    for (const tree_entry_t& entry : tree.List(top)) {
        if (entry.fault.empty()) {
            lister.OnEntry(entry);
        } else {
            lister.OnUnreadable(entry.name, entry.fault);
        }
    }
}

}  // namespace

void ListTree(tree_source_t& tree, const std::string& top, const list_options_t& options,
              const std::function<void(const tree_entry_t&)>& tell) {
    lister_t lister(top, options.mask, tell);
    const std::optional<tree_entry_t> found = tree.TryExamine(top);
    if (!options.recursive && found && found->brief.kind == EEntryKind::eDirectory) {
        list_one_level(tree, top, lister);
    } else {
        WalkTree(tree, top, lister);
    }
}

}  // namespace agent
