#pragma once

#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "mirrowen/cnt/array.h"
#include "mirrowen/util/file_info.h"
#include "tarn/blobfs/blob_command_reader.h"
#include "tarn/blobfs/lz4.h"

/// What is in a blob file, for a person to look at. Nothing is applied.
namespace agent::blob {

/// What the checksum in the header says of the payload.
enum class EChecksum {
    eAbsent,  ///< there is none to compare
    eGood,
    eWrong,
    eUnknown,  ///< the payload could not be unpacked
};

/// A blob file that was read, as far as that went.
struct blob_contents_t {
    std::uint64_t fileSize = 0;
    std::optional<tarn::blobfs::BlockHeader> header;  ///< nothing in a file that is too short for one
    EChecksum checksum = EChecksum::eUnknown;
    std::shared_ptr<const cnt::array_t<char>> payload;  ///< also of a wrong checksum; empty when it cannot be unpacked
    std::exception_ptr fault;                           ///< what is wrong with header, block or checksum
};

/// Reads the blob file at `path` into memory. What is wrong with it is not thrown but kept: `exc::CRuntimeExc` "Failed
/// to read blob file [%1]." with its cause. A file without a byte is an empty blob file and no fault. Throws what keeps
/// the file from being opened or read, and `exc::CRuntimeExc` "[%1] is not a regular file.".
blob_contents_t ReadBlob(const std::string& path);

/// A command as it stands in the payload.
struct shown_command_t {
    std::uint64_t at = 0;      ///< offset in the payload
    std::uint32_t length = 0;  ///< of the whole command
    std::uint32_t type = 0;
    std::string path;  ///< that of an earlier command where this one keeps it; empty when there is none
    bool keepsPath = false;
    std::optional<bool> overwrite;        ///< of a command that creates
    std::optional<std::uint64_t> offset;  ///< of a write: where in the file
    std::uint64_t bytes = 0;              ///< of a write: how many
    std::optional<util::CFileInfo> info;  ///< of a command that sets metadata
    std::string fault;                    ///< why it could not be applied; then none of what follows the path
};

/// Tells each command of the payload. Throws `exc::CRuntimeExc` where the commands stop making sense.
void TellCommands(const cnt::array_t<char>& payload, const std::function<void(const shown_command_t&)>& tell);

}  // namespace agent::blob
