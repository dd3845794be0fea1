#pragma once

#include <string>

#include "tarn/blobfs/blob_fs_connnection.h"

namespace agent::batch {

/// Keeps the name of the blob file that was written last, for the packer that made it be written. One thread.
class batch_connection_t final : public tarn::blobfs::CBlobFsConnnection {
  public:
    /// `folder`: where blob files are written.
    explicit batch_connection_t(const std::string& folder);
    ~batch_connection_t() override;

    void OnBlobFileCreated(const std::string& name) override;

    /// The path of the blob file that was announced since the last call; empty when there was none.
    std::string TakePath();

  private:
    std::string name_;
};

}  // namespace agent::batch
