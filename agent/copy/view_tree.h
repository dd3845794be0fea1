#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "agent/copy/host_tree.h"
#include "agent/copy/item_source.h"
#include "tarn/flr/flr_context.h"

namespace agent::copy {

/// A tree of a restore view: the mapping rules say which directory of this machine holds which mount point of the
/// backed-up one. Names are the backed-up machine's, without the '/' at the front, and are never followed through a
/// link; each is looked up under the rule with the deepest mount point, so a mount point below another one shows what
/// is mounted there. One whose directory is missing from what it is mounted on does not appear in a listing.
class view_tree_t final : public item_source_t {
  public:
    /// The rules must not change while the tree is used.
    explicit view_tree_t(std::shared_ptr<const tarn::CFLRContext> rules);
    ~view_tree_t() override;

    /// The path as a person names it, "FlrFS:///etc/hostname".
    std::string Shown(const std::string& name) const override;
    /// Throws `exc::CRuntimeExc` "No suitable mapping rule was found for a given path." for a name on no mount point,
    /// as List and Load do, and "Failed to open directory [%1]" when a rule's directory cannot be opened.
    std::optional<tree_entry_t> TryExamine(const std::string& name) override;
    std::vector<tree_entry_t> List(const std::string& directory) override;
    loaded_item_t Load(const tree_entry_t& entry, const std::string& target, const load_options_t& options,
                       std::vector<copy_note_t>& warnings) override;

  private:
    /// A name of the view as one of the tree that holds it.
    struct place_t {
        std::string root;   ///< a directory of this machine
        std::string inner;  ///< below that directory
    };

    place_t Locate(const std::string& name) const;
    host_tree_t& TreeOf(const std::string& root);

    const std::shared_ptr<const tarn::CFLRContext> rules_;
    std::map<std::string, std::unique_ptr<host_tree_t>> trees_;  ///< by directory
};

}  // namespace agent::copy
