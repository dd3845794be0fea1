#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "mirrowen/cnt/array.h"
#include "mirrowen/io/little_endian.h"
#include "tarn/export.h"

namespace tarn::blobfs {

/// Stands before the LZ4 block in a frame, byte for byte. The block's own length is what remains of the file.
struct BlockHeader {
    io::little_endian_t<std::uint32_t> magicAndFlags;  ///< written as 0xF800000F
    io::little_endian_t<std::uint32_t> checksum;       ///< `util::crc32c` of the uncompressed bytes, from seed 0
    io::little_endian_t<std::uint32_t> uncompressedLength;
};
static_assert(sizeof(BlockHeader) == 12 && alignof(BlockHeader) == 1);

/// The frame around a compressed buffer: header and one raw LZ4 block. In `magicAndFlags` the bits 24 to 27 are flags,
/// all others are the magic number; bit 27 says that the checksum is there to be compared, the other flags mean
/// nothing. All functions may be called from any thread on buffers of its own; they keep nothing.
///
/// Failures are `exc::CRuntimeExc` with the texts given below, those of files `posix::errno_exc_t`. Nothing is retried,
/// and a destination is touched only by success.
class TARN_API CLz4 {
  public:
    CLz4() = delete;

    /// Packs `source` into a new buffer of exactly the compressed bytes, fills in `header` and returns the number of
    /// those bytes. Throws "Lz4 compression has failed, error code '%1', data size '%2'." for a negative result of the
    /// compressor. A result of 0, which it has for a source that is too large for it (more than 2,113,929,216 bytes),
    /// is no failure: the destination is then empty.
    static std::int32_t compress(std::shared_ptr<cnt::array_t<char>> source,
                                 std::shared_ptr<cnt::array_t<char>>& destination, BlockHeader& header);

    /// Unpacks the block `source` into a new buffer of the header's length, which it returns. Throws
    /// - "Failed to decompress LZ4 block: incorrect block header." for another magic number,
    /// - "Failed to decompress LZ4 block: Incorrect decompression result or length (result: '%1', expected length:
    ///   '%2')." for a block that is damaged (the result is negative) or has another length than the header says,
    /// - "Failed to decompress LZ4 block: Bad crc (original crc: %1, current crc: %2)." with hexadecimal numbers, the
    ///   first of 8 digits, the second without leading zeros.
    /// The memory it takes is bounded by the length of the block, too, whatever the header says.
    static std::uint32_t decompress(const BlockHeader& header, std::shared_ptr<cnt::array_t<char>> source,
                                    std::shared_ptr<cnt::array_t<char>>& destination);

    /// Writes one frame to `path`, in place of a file that is there.
    static void compressToFile(std::shared_ptr<cnt::array_t<char>> source, const std::string& path);

    /// The buffer that the frame at `path` holds. A file that is too short for a header throws `std::length_error`
    /// "cannot create std::vector larger than max_size()".
    static std::shared_ptr<cnt::array_t<char>> decompressFromFile(const std::string& path);
};

}  // namespace tarn::blobfs
