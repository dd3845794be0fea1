#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "agent/blob/pack.h"
#include "agent/copy/open_tree.h"
#include "agent/tree/walk_tree.h"
#include "tarn/blobfs/blob_creater.h"

namespace agent::blob {

/// The longest target path that is packed: what a call of the receiving host takes, without the terminator.
inline constexpr std::size_t kMaxTarget = 4095;

/// Goes through trees and puts what makes them again into blob files. One thread.
class packer_t final : private tree_visitor_t {
  public:
    /// Begins with the target directory; adds to `report`. All must outlive this object.
    packer_t(const pack_options_t& options, tarn::blobfs::BlobCreater& creater, pack_report_t& report);
    ~packer_t() override;

    /// Throws what the creater throws, and when the top of the source has gone.
    void Run(const copy::opened_tree_t& source);

  private:
    void OnEntry(const tree_entry_t& entry) override;
    void OnDirectoryLeft(const tree_entry_t& entry) override;
    void OnUnreadable(const std::string& name, const std::string& fault) override;

    void PackFile(const tree_entry_t& entry, const std::string& target);
    bool PackContent(const std::string& name, const std::string& target, io::area::area_read_dev_t& source);
    bool IsTarget(const tree_entry_t& entry) const;
    std::string TargetOf(const std::string& name) const;
    std::optional<copy::loaded_item_t> TryLoad(const tree_entry_t& entry);
    void Fail(const std::string& name, const std::string& text);

    const pack_options_t& options_;
    tarn::blobfs::BlobCreater& creater_;
    pack_report_t& report_;
    const copy::opened_tree_t* source_ = nullptr;
};

}  // namespace agent::blob
