#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "tarn/blobfs/blob_creater.h"
#include "tarn/export.h"
#include "tarn/fs_operations.h"

namespace tarn::blobfs {

/// The write-only backend of blob files. A path is a registered prefix, everything up to and including its first "://",
/// and the target path behind it, which is what the receiver of the blob gets; it may be empty. Making directories and
/// files, writing and setting attributes become commands of the creator; no disk is touched.
///
/// Abstract: the embedding agent derives the class whose object it registers in `mapBlobFsOps` and supplies
/// `OpenFile4ReadWithoutWriteShare`, `GetFileMetadata`, `TryGetSymLinkInfo` and `CreateSymLink` of the interface. All
/// calls for one prefix come from one thread.
///
/// An operation that says that it refuses leaves a trace with its name and throws `exc::CNotImplExc` with its name
/// alone. The others throw `exc::CRuntimeExc` "Invalid prefix for file [%1]" for a path without "://", and what the
/// creator throws.
class TARN_API blobfs_operations_t : public fs_operations_t {
  public:
    /// Keeps the creator.
    explicit blobfs_operations_t(std::shared_ptr<BlobCreater> creater);
    /// Releases the creator; its last owner finishes the pending blob file.
    ~blobfs_operations_t() override;

    /// Whether the path's prefix is registered, letter case included.
    static bool IsBlobFsPath(const std::string& path);

    /// The backend registered for the path's prefix, always the same object. Throws `exc::CRuntimeExc`
    /// "Invalid prefix in fs_path [%1]" for a path without "://" and
    /// "Cannot find fs_operation object by prefix [%1]." for an unknown prefix.
    static std::shared_ptr<blobfs_operations_t> GetByFsPath(const std::string& path);

    /// Takes the backend registered for the path's prefix out of the map, which ends its batch: unless somebody else
    /// holds the backend or the creator (every stream does), the pending blob file is written and announced before this
    /// returns. A failure of that is only logged; `BlobCreater::Finish` before it throws. Throws `exc::CRuntimeExc`
    /// "Invalid prefix in fs_path [%1]" for a path without "://" and "Cannot find prefix [%1]." for an unknown prefix.
    static void CloseBlobFsOp(const std::string& path);

    /// Refuses.
    std::shared_ptr<file_rstream_t> OpenFile4Read(const std::string& path) override;
    /// Refuses.
    std::shared_ptr<file_rstream_t> OpenDisk4Read(const std::string& path) override;
    /// Refuses.
    std::shared_ptr<file_wstream_t> OpenFile4Write(const std::string& path, std::uint64_t length) override;
    /// A `blobfs_file_wstream_t`; the receiver gets the file even if nothing is written. `length` means nothing here.
    std::shared_ptr<file_wstream_t> CreateNewFile(const std::string& path, std::uint64_t length,
                                                  bool overwrite) override;
    /// A directory that the receiver has already stays.
    void CreateDir(const std::string& path) override;
    /// Always false, also for what was just created: nobody here knows what the receiver has.
    bool IsObjectExist(const std::string& path) override;
    /// Refuses.
    void DeleteFile(const std::string& path) override;
    /// Refuses to answer.
    bool IsRenameSupported() const override;
    /// Refuses.
    void RenameFile(const std::string& oldPath, const std::string& newPath) override;
    /// Refuses.
    std::shared_ptr<backup_media_t> GetBackupMedia() override;
    void SetFileMetadata(const util::CFileInfo& info, const std::string& path) override;

    using fs_operations_t::CreateSymLink;
    using fs_operations_t::GetFileMetadata;
    using fs_operations_t::TryGetSymLinkInfo;
    /// These three are the backend's own, beside the interface's of the same names. They refuse.
    virtual util::CFileInfo GetFileMetadata(const std::string& path);
    virtual bool TryGetSymLinkInfo(const std::string& path, std::string& target);
    virtual void CreateSymLink(const std::string& path, const std::string& target);

  private:
    // NOLINTBEGIN(bugprone-reserved-identifier): names as their callers know them
    /// False, with `prefix` untouched, for a path without "://".
    static bool _GetPrefix(const std::string& path, std::string& prefix);
    /// False, with `target` untouched, for a path without "://".
    static bool _GetTargetPath(const std::string& path, std::string& target);
    // NOLINTEND(bugprone-reserved-identifier)

    /// The target path of a path that must have a prefix.
    static std::string TargetOf(const std::string& path);

    std::shared_ptr<BlobCreater> creater_;
};

/// The registered backends by prefix ("blobfs://"). The embedding agent fills it; inside the library it is only looked
/// up and erased. There is no lock: registering and closing must not run beside any dispatch of paths.
extern TARN_API std::map<std::string, std::shared_ptr<blobfs_operations_t>> mapBlobFsOps;

}  // namespace tarn::blobfs
