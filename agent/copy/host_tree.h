#pragma once

#include <memory>
#include <string>
#include <vector>

#include "agent/copy/item_source.h"
#include "agent/root/confined_root.h"

namespace agent::copy {

/// A tree of this machine, read through a directory that is held open, so nothing that is swapped in it leads out.
class host_tree_t final : public item_source_t {
  public:
    explicit host_tree_t(std::shared_ptr<const confined_root_t> root);
    ~host_tree_t() override;

    std::string Shown(const std::string& name) const override;
    std::optional<tree_entry_t> TryExamine(const std::string& name) override;
    std::vector<tree_entry_t> List(const std::string& directory) override;
    /// Errors are those of `confined_root_t`.
    loaded_item_t Load(const tree_entry_t& entry, const std::string& target, const load_options_t& options,
                       std::vector<copy_note_t>& warnings) override;

  private:
    tree_entry_t ExamineIn(int directory, const std::string& last, std::string name) const;

    const std::shared_ptr<const confined_root_t> root_;
};

}  // namespace agent::copy
