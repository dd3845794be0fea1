#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "mirrowen/export.h"
#include "mirrowen/io/file/random_access_dev.h"

namespace io::file {

/// How large a file is expected to become; space for that many bytes is reserved when it is opened for writing, where
/// the file system can, and the file's size does not change.
class MIRROWEN_API file_template_t {
  public:
    explicit file_template_t(std::uint64_t expectedSize) noexcept : expectedSize_(expectedSize) {}
    std::uint64_t GetExpectedSize() const noexcept { return expectedSize_; }

  private:
    std::uint64_t expectedSize_;
};

/// What to do about the file's existence.
enum class ECreateMode : int {
    eOpenExisting = 1,  ///< the file must exist
    eOpenOrCreate = 2,  ///< opened as it is, or created empty
};

/// A host file as a random-access device.
class MIRROWEN_API hosted_file_dev_t {
  public:
    /// Opens `path`. Failures: `posix::errno_exc_t` naming the path; writing to a read-only device throws
    /// `exc::CRuntimeExc` "Device [%1] was opened for reading only.".
    static std::shared_ptr<random_access_dev_t> Create(const std::string& path, bool readOnly, ECreateMode mode,
                                                       const std::optional<file_template_t>& fileTemplate);
};

}  // namespace io::file
