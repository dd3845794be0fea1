#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include <gmock/gmock.h>

#include "tarn/fs_operations.h"

namespace tests {

/// A backend whose operations a test scripts. Those with a body in the base class keep it.
class mock_fs_operations_t : public tarn::fs_operations_t {
  public:
    using rstream_t = std::shared_ptr<tarn::file_rstream_t>;
    using wstream_t = std::shared_ptr<tarn::file_wstream_t>;

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
    MOCK_METHOD(void, SetFileMetadata, (const util::CFileInfo&, const std::string&), (override));
    MOCK_METHOD(bool, TryGetSymLinkInfo, (const std::string&, tarn::CSymlinkData&), (override));
    MOCK_METHOD(void, CreateSymLink, (const std::string&, const tarn::CSymlinkData&), (override));
};

}  // namespace tests
