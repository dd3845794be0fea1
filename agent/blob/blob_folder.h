#pragma once

#include <string>
#include <vector>

#include "tarn/blobfs/blob_fs_connnection.h"

namespace agent::blob {

/// Where blob files stay: the paths of those that were written, in order. One thread at a time.
class blob_folder_t final : public tarn::blobfs::CBlobFsConnnection {
  public:
    explicit blob_folder_t(const std::string& folder);
    ~blob_folder_t() override;

    void OnBlobFileCreated(const std::string& name) override;

    std::vector<std::string> TakePaths() { return std::move(paths_); }

  private:
    std::vector<std::string> paths_;
};

}  // namespace agent::blob
