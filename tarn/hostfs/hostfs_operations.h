#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "tarn/export.h"
#include "tarn/fs_operations.h"

namespace tarn::hostfs {

/// The backend of the local file system, network shares included: the dispatcher's last choice, so every path without
/// another backend's prefix ends here. It has no state; one object may be shared by any number of threads. Paths are
/// bytes and go to the system as they are. Failures of the system are `posix::errno_exc_t`, wrapped where the operation
/// says so.
class TARN_API hostfs_operations_t : public fs_operations_t {
  public:
    hostfs_operations_t();
    ~hostfs_operations_t() override;

    /// A `hostfs_file_rstream_t`; on a network share a `retryable_hostfs_file_rstream_t` that retries 3 times. A file
    /// that is missing, a directory included, throws `exc::CRuntimeExc` "Failed to open file [%1] for reading.".
    std::shared_ptr<file_rstream_t> OpenFile4Read(const std::string& path) override;

    /// As OpenFile4Read, holding the file's lock object while it reads; on a network share a
    /// `retryable::CRetryableFileRstream` with 3 retries and pauses of 10 seconds. The lock is a marker: it keeps
    /// nobody from the file.
    std::shared_ptr<file_rstream_t> OpenFile4ReadWithoutWriteShare(const std::string& path) override;

    /// Refuses: `exc::CRuntimeExc` "HostFS doesn't support disk operations. Disk path: [%1].".
    std::shared_ptr<file_rstream_t> OpenDisk4Read(const std::string& path) override;

    /// A write stream over an existing file, set to `length` bytes first: see
    /// `hostfs_file_wstream_t::OpenExistingAndResize`.
    std::shared_ptr<file_wstream_t> OpenFile4Write(const std::string& path, std::uint64_t length) override;

    /// A write stream over a new file of `length` bytes: see `hostfs_file_wstream_t::CreateNew`. What is there goes
    /// first when `overwrite` is set, so a crash in between loses the old file.
    std::shared_ptr<file_wstream_t> CreateNewFile(const std::string& path, std::uint64_t length,
                                                  bool overwrite) override;

    /// Makes one directory. One that is there already is fine; a missing parent throws.
    void CreateDir(const std::string& path) override;

    /// Whether anything is at the path: file, directory, or link, which is not followed.
    bool IsObjectExist(const std::string& path) override;

    /// Removes a file, a link or an empty directory; a missing one throws.
    void DeleteFile(const std::string& path) override;

    /// Always true.
    bool IsRenameSupported() const override;

    /// Renames within one file system and replaces a file at `newPath`.
    void RenameFile(const std::string& oldPath, const std::string& newPath) override;

    /// A new `hostfs_backup_media_t`.
    std::shared_ptr<backup_media_t> GetBackupMedia() override;

    /// The attributes of what is at the path, a link's own when it is one. A missing object throws `exc::CRuntimeExc`
    /// "Failed to get file info for file  [%1].". Access-control lists cannot be read here: `eFileInfoBasic` leaves the
    /// warning "Failed to get Acl for file [%1]." and goes on, the other types throw the reader's `std::runtime_error`.
    util::CFileInfo GetFileMetadata(const std::string& path, EFileInfoType type) override;

    /// Applies what it can and never throws for a failure: it is logged as the warning
    /// "Failed to set metadata for file [%1].". Access-control lists come last, since they cannot be set here.
    void SetFileMetadata(const util::CFileInfo& info, const std::string& path) override;

    /// Whatever keeps a link from being read, a missing permission included, is the answer false.
    bool TryGetSymLinkInfo(const std::string& path, CSymlinkData& out) override;

    /// Makes the link, in place of a link or an empty directory: see `CSymlinkData::Create`.
    void CreateSymLink(const std::string& path, const CSymlinkData& data) override;
};

}  // namespace tarn::hostfs
