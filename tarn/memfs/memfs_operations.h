#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "tarn/export.h"
#include "tarn/fs_operations.h"

namespace tarn::memfs {

/// The backend of files in memory: a file is a slot of `memfs_mem_slots_t`, named by what follows "MemFs://". An
/// in-process scratch store: what is written under a path is read back by the same path until it is deleted or the
/// process ends.
///
/// The object has no state and may be shared between threads; its streams are used by one thread each. Every supported
/// operation throws `exc::CRuntimeExc` with its own text over the cause, which for a path without the prefix is
/// "Invalid MemFS path: [%1]." (the placeholder stays as it is).
class TARN_API memfs_operations_t : public fs_operations_t {
  public:
    memfs_operations_t();
    ~memfs_operations_t() override;

    /// A `mem_rstream_t` over the slot's buffer as it is and will grow. A missing slot throws
    /// "MemFS: Cannot open file. File path: [%1].".
    std::shared_ptr<file_rstream_t> OpenFile4Read(const std::string& path) override;

    /// The same as OpenFile4Read: memory has no share modes.
    std::shared_ptr<file_rstream_t> OpenFile4ReadWithoutWriteShare(const std::string& path) override;

    /// Refuses: "MemFS doesn't support disk operations. Disk path: [%1].".
    std::shared_ptr<file_rstream_t> OpenDisk4Read(const std::string& path) override;

    /// Refuses: "Failed to open file '%1' for incremental update.". A file in memory is written once, from its start.
    std::shared_ptr<file_wstream_t> OpenFile4Write(const std::string& path, std::uint64_t length) override;

    /// A `memfs_file_wstream_t` over a new, empty slot; it exists from now on. A slot of that name is replaced, with
    /// `overwrite` or without; readers of the old one keep its bytes. `length` is only logged. Throws
    /// "MemFS: Cannot create new file: [%1]. File size: [%2].".
    std::shared_ptr<file_wstream_t> CreateNewFile(const std::string& path, std::uint64_t length,
                                                  bool overwrite) override;

    /// Refuses, as every operation below that says so: "MEMFS: operation does not supported. Operation: [%1].".
    void CreateDir(const std::string& path) override;

    /// Throws "MemFS: Cannot check whether file exitst: [%1]." for a path that is not of this backend.
    bool IsObjectExist(const std::string& path) override;

    /// Removes the slot; a missing one is fine. Throws "MemFS: Cannot delete file: [%1].".
    void DeleteFile(const std::string& path) override;

    /// Always false.
    bool IsRenameSupported() const override;
    /// Refuses.
    void RenameFile(const std::string& oldPath, const std::string& newPath) override;
    /// Refuses.
    std::shared_ptr<backup_media_t> GetBackupMedia() override;

    /// An unset record, whatever the path; never fails.
    util::CFileInfo GetFileMetadata(const std::string& path, EFileInfoType type) override;
    /// Refuses.
    void SetFileMetadata(const util::CFileInfo& info, const std::string& path) override;

    /// Always false: there are no links in memory.
    bool TryGetSymLinkInfo(const std::string& path, CSymlinkData& out) override;
    /// Refuses.
    void CreateSymLink(const std::string& path, const CSymlinkData& data) override;
};

}  // namespace tarn::memfs
