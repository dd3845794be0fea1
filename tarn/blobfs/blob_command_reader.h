#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include "tarn/export.h"

namespace tarn::blobfs {

/// One command of a payload; path and body point into the payload.
struct blob_command_t {
    std::uint32_t type = 0;  ///< an `eBlobCmd`, or whatever number stands there
    std::string_view path;   ///< empty: that of the command before
    std::span<const char> body;
    std::uint64_t offset = 0;  ///< of the header in the payload
    std::uint32_t length = 0;  ///< of the whole command
};

/// Walks over the commands of a payload and trusts none of the lengths in it. One thread at a time.
class TARN_API blob_command_reader_t {
  public:
    /// `payload` must outlive this object and the commands that it gives.
    explicit blob_command_reader_t(std::span<const char> payload);

    /// The next command, nothing at the end. Where the commands stop making sense it throws `exc::CRuntimeExc`, and so
    /// does every later call:
    /// - "Blob payload of [%1] bytes is shorter than a command."
    /// - "Blob payload ends within the header of the command at offset [%1]."
    /// - "Blob command at offset [%1] has length [%2], less than its header."
    /// - "Blob command at offset [%1] has length [%2], too short for its path of [%3] bytes."
    /// - "Blob command at offset [%1] has length [%2], only [%3] bytes are left."
    std::optional<blob_command_t> Next();

  private:
    std::span<const char> payload_;
    std::size_t offset_ = 0;
};

/// The data of a write command.
struct blob_write_t {
    std::uint64_t offset = 0;    ///< in the file
    std::span<const char> data;  ///< points into the payload
};

/// The flag of a command that creates a directory or a file; anything but zero is true. Throws `exc::CRuntimeExc` "Blob
/// command of type [%1] with a body of [%2] bytes is too short.".
TARN_API bool ReadOverwriteFlag(const blob_command_t& command);

/// Throws `exc::CRuntimeExc` "Blob command of type [%1] with a body of [%2] bytes is too short." or "Blob command of
/// type [%1] announces [%2] bytes, only [%3] follow.".
TARN_API blob_write_t ReadWrite(const blob_command_t& command);

/// The serialised file info of a metadata command; throws as ReadWrite.
TARN_API std::span<const char> ReadMetadata(const blob_command_t& command);

}  // namespace tarn::blobfs
