#pragma once

#include <cstdint>

#include "mirrowen/io/little_endian.h"

/// The commands of a blob file as they stand in its payload, one after the other with nothing between them. A command
/// is its header, its path and its body. All structs here are made of bytes without alignment: they may lie anywhere in
/// a buffer and are the layout on any host.
namespace tarn::blobfs {

/// What a command does.
enum class eBlobCmd : std::uint32_t {
    eCreateDir = 1,
    eCreateFile = 2,
    eWriteFile = 3,
    eSetFileMetadata = 4,
};

/// Starts every command; the path, without a terminator, and then the body follow.
struct BlobCmd_Header {
    io::little_endian_t<std::uint32_t> totalLength;  ///< bytes of the whole command: header, path and body
    io::little_endian_t<std::uint32_t> type;         ///< an `eBlobCmd`
    io::little_endian_t<std::uint16_t> pathLength;   ///< bytes of the path; 0 keeps the path of the previous command
};
static_assert(sizeof(BlobCmd_Header) == 10 && alignof(BlobCmd_Header) == 1);

struct BlobBody_CreateDir {
    std::uint8_t overwrite;  ///< 0 or 1
};
static_assert(sizeof(BlobBody_CreateDir) == 1 && alignof(BlobBody_CreateDir) == 1);

struct BlobBody_CreateFile {
    std::uint8_t overwrite;  ///< 0 or 1
};
static_assert(sizeof(BlobBody_CreateFile) == 1 && alignof(BlobBody_CreateFile) == 1);

/// `length` data bytes follow.
struct BlobBody_WriteFile {
    io::little_endian_t<std::uint64_t> offset;  ///< from the start of the file
    io::little_endian_t<std::uint32_t> length;
};
static_assert(sizeof(BlobBody_WriteFile) == 12 && alignof(BlobBody_WriteFile) == 1);

/// `length` bytes follow, a serialised `util::CFileInfo`.
struct BlobBody_SetFileMetadata {
    io::little_endian_t<std::uint32_t> length;
};
static_assert(sizeof(BlobBody_SetFileMetadata) == 4 && alignof(BlobBody_SetFileMetadata) == 1);

}  // namespace tarn::blobfs
