#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "tarn/export.h"
#include "tarn/flr/view_resolver.h"
#include "tarn/fs_operations.h"

namespace tarn {

/// The read-only backend of a restore view: "FlrFS://" and a path as the backed-up machine knew it. The path is mapped
/// to this host by the rules of the process's `CFLRContext` and read through a host backend. Links are resolved inside
/// the view, see `view_resolver_t`, so that nothing outside the mapped directories is ever read.
///
/// No state of its own; objects may be shared between threads while the rules do not change. A path that cannot be
/// mapped throws `exc::CRuntimeExc` "Path is not an FLR FS path." or
/// "No suitable mapping rule was found for a given path."; links that cannot be resolved throw `posix::errno_exc_t`
/// "Failed to resolve symbolic links of [%1]"; the host backend's errors pass unchanged.
class TARN_API flrfs_operations_t : public fs_operations_t {
  public:
    flrfs_operations_t();
    ~flrfs_operations_t() override;

    /// "FlrFS://".
    static std::string GetFlrFsPrefix();
    /// Whether `path` starts with the prefix, letter case included.
    static bool IsFlrFsPath(const std::string& path);
    /// The host path that the rules give for `path`, "." and ".." resolved by name first, links not looked at.
    static std::string MapPathToRealFs(const std::string& path);

    /// Opens what the path leads to in the view.
    std::shared_ptr<file_rstream_t> OpenFile4Read(const std::string& path) override;
    /// The same as OpenFile4Read: nobody writes to a view.
    std::shared_ptr<file_rstream_t> OpenFile4ReadWithoutWriteShare(const std::string& path) override;
    /// Refuses: "Disks are not supported by FLR FS platform.".
    std::shared_ptr<file_rstream_t> OpenDisk4Read(const std::string& path) override;

    /// Refuses, as every operation below that says so: "FLR FS is read-only platform.".
    std::shared_ptr<file_wstream_t> OpenFile4Write(const std::string& path, std::uint64_t length) override;
    /// Refuses.
    std::shared_ptr<file_wstream_t> CreateNewFile(const std::string& path, std::uint64_t length,
                                                  bool overwrite) override;
    /// Refuses.
    void CreateDir(const std::string& path) override;
    /// Whether anything is at the path, a link in the last component included.
    bool IsObjectExist(const std::string& path) override;
    /// Refuses.
    void DeleteFile(const std::string& path) override;
    /// Always false.
    bool IsRenameSupported() const override;
    /// Refuses.
    void RenameFile(const std::string& oldPath, const std::string& newPath) override;
    /// Refuses: "Not supported.".
    std::shared_ptr<backup_media_t> GetBackupMedia() override;
    /// As the host backend does; a link in the last component is described itself.
    util::CFileInfo GetFileMetadata(const std::string& path, EFileInfoType type) override;
    /// Refuses.
    void SetFileMetadata(const util::CFileInfo& info, const std::string& path) override;
    /// The link in the last component. An absolute target comes back as the host path that it is mapped to, which
    /// throws when it lies on no mount point; a relative one comes back as it is stored.
    bool TryGetSymLinkInfo(const std::string& path, CSymlinkData& out) override;
    /// Refuses.
    void CreateSymLink(const std::string& path, const CSymlinkData& data) override;

  protected:
    /// For tests: reads through another backend than the host's.
    explicit flrfs_operations_t(std::shared_ptr<fs_operations_t> inner);

  private:
    std::shared_ptr<fs_operations_t> inner_;
};

}  // namespace tarn
