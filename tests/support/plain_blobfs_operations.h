#pragma once

#include <memory>
#include <string>
#include <utility>

#include "mirrowen/exc/not_impl_exc.h"
#include "tarn/blobfs/blobfs_operations.h"
#include "tests/support/recording_blob_connection.h"

namespace tests {

/// The backend of blob files with nothing added: what it leaves to derived classes refuses.
class plain_blobfs_operations_t : public tarn::blobfs::blobfs_operations_t {
  public:
    using blobfs_operations_t::blobfs_operations_t;

    std::shared_ptr<tarn::file_rstream_t> OpenFile4ReadWithoutWriteShare(const std::string& /*path*/) override {
        throw exc::CNotImplExc("OpenFile4ReadWithoutWriteShare");
    }

    using blobfs_operations_t::CreateSymLink;
    using blobfs_operations_t::GetFileMetadata;
    using blobfs_operations_t::TryGetSymLinkInfo;
    util::CFileInfo GetFileMetadata(const std::string& /*path*/, tarn::EFileInfoType /*type*/) override { return {}; }
    bool TryGetSymLinkInfo(const std::string& /*path*/, tarn::CSymlinkData& /*out*/) override { return false; }
    void CreateSymLink(const std::string& /*path*/, const tarn::CSymlinkData& /*data*/) override {
        throw exc::CNotImplExc("CreateSymLink");
    }
};

/// A batch in the making: such a backend, registered under a prefix until it is closed or this object ends.
class blob_batch_t {
  public:
    explicit blob_batch_t(std::string prefix = "blobfs://") : prefix_(std::move(prefix)) {
        tarn::blobfs::mapBlobFsOps[prefix_] =
            std::make_shared<plain_blobfs_operations_t>(std::make_shared<tarn::blobfs::BlobCreater>(connection));
    }
    ~blob_batch_t() { tarn::blobfs::mapBlobFsOps.erase(prefix_); }
    blob_batch_t(const blob_batch_t&) = delete;
    blob_batch_t& operator=(const blob_batch_t&) = delete;

    tarn::blobfs::blobfs_operations_t& Operations() const { return *tarn::blobfs::mapBlobFsOps.at(prefix_); }

    const std::shared_ptr<recording_blob_connection_t> connection = std::make_shared<recording_blob_connection_t>();

  private:
    std::string prefix_;
};

}  // namespace tests
