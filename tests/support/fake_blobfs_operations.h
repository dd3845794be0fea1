#pragma once

#include <memory>
#include <string>
#include <utility>

#include <gmock/gmock.h>

#include "tarn/blobfs/blobfs_operations.h"
#include "tests/support/mock_fs_operations.h"

namespace tests {

/// A blob backend without a creator whose operations a test scripts.
class fake_blobfs_operations_t : public tarn::blobfs::blobfs_operations_t {
  public:
    fake_blobfs_operations_t() : blobfs_operations_t(nullptr) {}

    using rstream_t = mock_fs_operations_t::rstream_t;
    using wstream_t = mock_fs_operations_t::wstream_t;
    MOCK_METHOD(rstream_t, OpenFile4Read, (const std::string&), (override));
    MOCK_METHOD(rstream_t, OpenFile4ReadWithoutWriteShare, (const std::string&), (override));
    MOCK_METHOD(rstream_t, OpenDisk4Read, (const std::string&), (override));
    MOCK_METHOD(wstream_t, OpenFile4Write, (const std::string&, std::uint64_t), (override));
    MOCK_METHOD(wstream_t, CreateNewFile, (const std::string&, std::uint64_t, bool), (override));
    MOCK_METHOD(void, CreateDir, (const std::string&), (override));
    MOCK_METHOD(bool, IsObjectExist, (const std::string&), (override));
    MOCK_METHOD(void, DeleteFile, (const std::string&), (override));
    MOCK_METHOD(bool, IsRenameSupported, (), (const, override));
    MOCK_METHOD(void, RenameFile, (const std::string&, const std::string&), (override));
    MOCK_METHOD(std::shared_ptr<tarn::backup_media_t>, GetBackupMedia, (), (override));
    MOCK_METHOD(util::CFileInfo, GetFileMetadata, (const std::string&, tarn::EFileInfoType), (override));
    MOCK_METHOD(util::CFileInfo, GetFileMetadata, (const std::string&), (override));
    MOCK_METHOD(void, SetFileMetadata, (const util::CFileInfo&, const std::string&), (override));
    MOCK_METHOD(bool, TryGetSymLinkInfo, (const std::string&, tarn::CSymlinkData&), (override));
    MOCK_METHOD(bool, TryGetSymLinkInfo, (const std::string&, std::string&), (override));
    MOCK_METHOD(void, CreateSymLink, (const std::string&, const tarn::CSymlinkData&), (override));
    MOCK_METHOD(void, CreateSymLink, (const std::string&, const std::string&), (override));
};

/// Registers a fake blob backend under a prefix for the life of this object.
class scoped_blobfs_t {
  public:
    explicit scoped_blobfs_t(std::string prefix) : prefix_(std::move(prefix)) {
        tarn::blobfs::mapBlobFsOps[prefix_] = operations;
    }
    ~scoped_blobfs_t() { tarn::blobfs::mapBlobFsOps.erase(prefix_); }
    scoped_blobfs_t(const scoped_blobfs_t&) = delete;
    scoped_blobfs_t& operator=(const scoped_blobfs_t&) = delete;

    const std::shared_ptr<fake_blobfs_operations_t> operations = std::make_shared<fake_blobfs_operations_t>();

  private:
    std::string prefix_;
};

}  // namespace tests
