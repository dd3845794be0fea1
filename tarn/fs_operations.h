#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "mirrowen/util/file_info.h"
#include "tarn/backup_media.h"
#include "tarn/export.h"
#include "tarn/file_rstream.h"
#include "tarn/file_wstream.h"
#include "tarn/symlink_data.h"

namespace tarn {

/// How much `GetFileMetadata` gathers.
enum class EFileInfoType : std::uint8_t {
    eFileInfoBasic = 0,    ///< attributes and, unless the object is a link, its access-control list
    eFileInfoAclOnly = 1,  ///< the access-control list alone
    eFileInfoFull = 2,     ///< attributes and the access-control list, also of a link
};

/// One object of a listing. A plain record.
struct SDirectoryEntry {
    std::string path;                     ///< in the backend's own form
    util::CFileInfo info;                 ///< what the listing tells of it; the rest is unset
    std::vector<std::string> properties;  ///< further texts that the backend knows (a version, a storage class)
};

/// One storage backend: host files, memory, blob files, cloud objects, a restore view, relative paths. Callers get one
/// from the dispatcher below and never name its class.
///
/// Paths are passed as the caller has them, prefix included, as bytes; each backend strips its own prefix. Every
/// failure throws; only `IsObjectExist`, `IsRenameSupported` and `TryGetSymLinkInfo` answer "no". What a backend does
/// not offer throws `exc::CNotImplExc` or an `exc::CRuntimeExc` with a sentence that names the backend. Objects are
/// cheap, hold no list of their streams and may be shared between threads unless the backend says otherwise.
class TARN_API fs_operations_t {
  public:
    virtual ~fs_operations_t();

    /// The backend for a path, chosen by its form in this order: a path that the process's context maps to another one
    /// (a wrapper over the backend of the mapped path), "FlrFS://" (exact case), tape data ("tdatafs://", refused),
    /// "MemFs://" (any case), a registered blob prefix, and otherwise the host. `mode` is 0; 1 is the internal re-entry
    /// with a mapped path. Throws `exc::CRuntimeExc` "Non prefix paths are disabled." or "TapeDataFs not supported.".
    static std::shared_ptr<fs_operations_t> RecognizeFsPath(const std::string& path, int mode);

    /// A read stream over an existing file, standing at its start; a missing one throws.
    virtual std::shared_ptr<file_rstream_t> OpenFile4Read(const std::string& path) = 0;
    /// As OpenFile4Read, for exclusive use where the backend knows it.
    virtual std::shared_ptr<file_rstream_t> OpenFile4ReadWithoutWriteShare(const std::string& path) = 0;
    /// A read stream over a disk. No backend of this library has disks: all throw.
    virtual std::shared_ptr<file_rstream_t> OpenDisk4Read(const std::string& path) = 0;
    /// A write stream over an existing file, which is first set to `length` bytes; a missing one throws. For changing
    /// parts of a file; backends whose files are written once refuse.
    virtual std::shared_ptr<file_wstream_t> OpenFile4Write(const std::string& path, std::uint64_t length) = 0;
    /// A write stream over a new file of `length` bytes. What is there already is replaced with `overwrite`, else
    /// `exc::CAlreadyExistsExc`, where the backend tells.
    virtual std::shared_ptr<file_wstream_t> CreateNewFile(const std::string& path, std::uint64_t length,
                                                          bool overwrite) = 0;
    /// Makes one directory. One that is there already is fine where the backend has directories; a missing parent
    /// throws.
    virtual void CreateDir(const std::string& path) = 0;
    /// Whether a file or directory exists at the path.
    virtual bool IsObjectExist(const std::string& path) = 0;
    /// Removes a file. Whether a missing one throws (host files) or is fine (memory) is the backend's to say. Streams
    /// that are open on it go on.
    virtual void DeleteFile(const std::string& path) = 0;
    /// Asked before RenameFile by callers that can do without.
    virtual bool IsRenameSupported() const = 0;
    /// Gives a file another name within the backend; one that has it already is replaced, a missing `oldPath` throws.
    virtual void RenameFile(const std::string& oldPath, const std::string& newPath) = 0;
    /// The storage for backup files; never empty. A backend without one throws.
    virtual std::shared_ptr<backup_media_t> GetBackupMedia() = 0;
    /// The attributes of what is at the path, a link's own when it is one, as far as `type` asks for them. Backends
    /// without attributes return an unset record, also for a missing file; host files throw for one.
    virtual util::CFileInfo GetFileMetadata(const std::string& path, EFileInfoType type) = 0;
    /// Applies attributes to what is at the path (a link itself, never its target); `info` comes first. On host files
    /// a failure is only logged.
    virtual void SetFileMetadata(const util::CFileInfo& info, const std::string& path) = 0;
    /// True, with `out` filled, when the path is a link; false, with `out` untouched, otherwise.
    virtual bool TryGetSymLinkInfo(const std::string& path, CSymlinkData& out) = 0;
    /// Makes a link at the path, in place of a link that is there; the target need not exist.
    virtual void CreateSymLink(const std::string& path, const CSymlinkData& data) = 0;
    /// The objects below a directory. Here: throws `exc::CNotImplExc` "fs_operations_t::EnumerateDirectoryContent";
    /// only the cloud backend lists this way.
    virtual std::vector<SDirectoryEntry> EnumerateDirectoryContent(const std::string& path);
};

}  // namespace tarn
