#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "tarn/export.h"
#include "tarn/fs_operations.h"

namespace tarn::relative {

/// A backend reached by a relative path: it maps the caller's path anew on every call, so that the caller keeps using
/// the relative form, and hands the mapped path to the backend below. May be shared between threads as that one may.
///
/// Where an operation names a text, a failure of the mapping or of the backend below becomes an `exc::CRuntimeExc` with
/// that text, the caller's path filled in and the failure as cause; elsewhere failures pass unchanged, and
/// `exc::CAlreadyExistsExc` does so everywhere.
class TARN_API relative_fs_operations : public fs_operations_t {
  public:
    /// `inner` is the backend of the mapped path; it is shared with the caller and may not be empty.
    explicit relative_fs_operations(std::shared_ptr<fs_operations_t> inner);
    ~relative_fs_operations() override;

    /// The path as the process's context maps it; the same path when it is unknown there.
    static std::string GetAbsolutePath(const std::string& path);

    /// "Failed to open file for read by relative path [%1]."
    std::shared_ptr<file_rstream_t> OpenFile4Read(const std::string& path) override;
    /// The one call that hands on the caller's own path, unmapped.
    std::shared_ptr<file_rstream_t> OpenFile4ReadWithoutWriteShare(const std::string& path) override;
    /// "Failed to open disk for read by relative path [%1]."
    std::shared_ptr<file_rstream_t> OpenDisk4Read(const std::string& path) override;
    /// "Failed to open file for write by relative path [%1]."
    std::shared_ptr<file_wstream_t> OpenFile4Write(const std::string& path, std::uint64_t length) override;
    /// "Failed to create new file by relative path [%1]."
    std::shared_ptr<file_wstream_t> CreateNewFile(const std::string& path, std::uint64_t length,
                                                  bool overwrite) override;
    /// Failures pass unchanged, as those of the metadata below.
    void CreateDir(const std::string& path) override;
    /// "Failed to check whether the file exists using relative path [%1]."
    bool IsObjectExist(const std::string& path) override;
    /// "Failed to delete file by relative path [%1]."
    void DeleteFile(const std::string& path) override;
    /// The backend's own answer, as GetBackupMedia.
    bool IsRenameSupported() const override;
    /// "Failed to rename file by relative path [%1] to [%2]."
    void RenameFile(const std::string& oldPath, const std::string& newPath) override;
    std::shared_ptr<backup_media_t> GetBackupMedia() override;
    util::CFileInfo GetFileMetadata(const std::string& path, EFileInfoType type) override;
    void SetFileMetadata(const util::CFileInfo& info, const std::string& path) override;
    /// Always false, without touching `out`: links are not served by relative path.
    bool TryGetSymLinkInfo(const std::string& path, CSymlinkData& out) override;
    /// Refuses: `exc::CRuntimeExc` "Not supported.".
    void CreateSymLink(const std::string& path, const CSymlinkData& data) override;

  private:
    std::shared_ptr<fs_operations_t> inner_;
};

}  // namespace tarn::relative
