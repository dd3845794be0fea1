#pragma once

#include <map>
#include <memory>
#include <string>

#include "tarn/export.h"
#include "tarn/fs_operations.h"

namespace tarn::blobfs {

class BlobCreater;

/// The write-only backend of blob files. A path is a registered prefix, everything up to and including its first "://",
/// and the target path behind it. Abstract: the embedding agent derives the class whose object it registers in
/// `mapBlobFsOps`.
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

  private:
    /// False, with `prefix` untouched, for a path without "://".
    // NOLINTNEXTLINE(bugprone-reserved-identifier): a name as its callers know it.
    static bool _GetPrefix(const std::string& path, std::string& prefix);

    std::shared_ptr<BlobCreater> creater_;
};

/// The registered backends by prefix ("blobfs://"). The embedding agent fills it; inside the library it is only looked
/// up and erased. There is no lock: registering must not run beside any dispatch of paths.
extern TARN_API std::map<std::string, std::shared_ptr<blobfs_operations_t>> mapBlobFsOps;

}  // namespace tarn::blobfs
