#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "tarn/blobfs/blob_creater.h"
#include "tarn/blobfs/blobfs_operations.h"

namespace agent::batch {

/// The backend that agents fill blob files through. What a blob file cannot do is refused with `exc::CNotImplExc` and
/// the operation's name. One thread.
class batch_backend_t final : public tarn::blobfs::blobfs_operations_t {
  public:
    /// Bytes of the longest path; the header of a command would cut one that is much longer.
    static constexpr std::size_t kMaxPathBytes = 4095;

    explicit batch_backend_t(std::shared_ptr<tarn::blobfs::BlobCreater> creater);
    ~batch_backend_t() override;

    /// The three that write throw, beside the errors of the base, `exc::CRuntimeExc` "Path of [%1] bytes is longer than
    /// the allowed [%2]." before anything is written.
    std::shared_ptr<tarn::file_wstream_t> CreateNewFile(const std::string& path, std::uint64_t length,
                                                        bool overwrite) override;
    void CreateDir(const std::string& path) override;
    void SetFileMetadata(const util::CFileInfo& info, const std::string& path) override;

    std::shared_ptr<tarn::file_rstream_t> OpenFile4ReadWithoutWriteShare(const std::string& path) override;
    using blobfs_operations_t::GetFileMetadata;
    util::CFileInfo GetFileMetadata(const std::string& path, tarn::EFileInfoType type) override;
    using blobfs_operations_t::TryGetSymLinkInfo;
    bool TryGetSymLinkInfo(const std::string& path, tarn::CSymlinkData& out) override;
    using blobfs_operations_t::CreateSymLink;
    void CreateSymLink(const std::string& path, const tarn::CSymlinkData& data) override;
};

}  // namespace agent::batch
