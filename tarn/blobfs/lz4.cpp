#include "tarn/blobfs/lz4.h"

#include <lz4.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <limits>
#include <utility>

#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/posix/posix_file.h"
#include "mirrowen/util/crc32c.h"
#include "tarn/blobfs/lz4_compressor.h"

namespace tarn::blobfs {

namespace {

using buffer_t = cnt::array_t<char>;

constexpr std::uint32_t kMagic = 0xF000000F;
constexpr std::uint32_t kMagicMask = 0xF0FFFFFF;
constexpr std::uint32_t kChecksumFlag = 0x08000000;

// The most bytes that one byte of a block stands for: an extension of a match's length by 255.
constexpr std::size_t kGreatestRatio = 255;

// Lengths for LZ4, whose own limits are lower: what does not fit is too much for it either way.
int IntOf(std::size_t length) {
    return static_cast<int>(std::min<std::size_t>(length, std::numeric_limits<int>::max()));
}

// An empty buffer may have no memory, and LZ4 is not shown null pointers.
template <class Buffer>
auto* DataOf(Buffer& buffer, char& instead) {
    return buffer.empty() ? &instead : buffer.data();
}

std::uint32_t ChecksumOf(const buffer_t& buffer) {
    return util::crc32c(0, buffer.data(), buffer.size());
}

// A destination of the header's length, or as long as this block can become when the header says more.
std::shared_ptr<buffer_t> MakeDestination(const BlockHeader& header, std::size_t sourceLength) {
    return std::make_shared<buffer_t>(std::min<std::size_t>(header.uncompressedLength, kGreatestRatio * sourceLength));
}

void CompareChecksum(const BlockHeader& header, const buffer_t& destination) {
    const std::uint32_t current = ChecksumOf(destination);
    if (current == header.checksum) {
        return;
    }
    char text[100];
    std::snprintf(text, sizeof text, "Failed to decompress LZ4 block: Bad crc (original crc: %08x, current crc: %x).",
                  static_cast<unsigned>(header.checksum), static_cast<unsigned>(current));
    throw exc::CRuntimeExc(text);
}

}  // namespace

std::int32_t CompressWith(lz4_compressor_t compressor, const buffer_t& source, std::shared_ptr<buffer_t>& destination,
                          BlockHeader& header) {
    // Always at least what LZ4 needs for a source that does not shrink.
    const auto capacity = static_cast<std::size_t>(static_cast<double>(source.size()) * 1.1 + 20.0);
    auto packed = std::make_shared<buffer_t>(capacity);
    char nothing = 0;
    const int result = compressor(DataOf(source, nothing), packed->data(), IntOf(source.size()), IntOf(capacity));
    if (result < 0) {
        throw exc::CRuntimeExc("Lz4 compression has failed, error code '%1', data size '%2'.", result, source.size());
    }
    packed->resize(static_cast<std::size_t>(result));
    header.magicAndFlags = kMagic | kChecksumFlag;
    header.checksum = ChecksumOf(source);
    header.uncompressedLength = static_cast<std::uint32_t>(source.size());
    destination = std::move(packed);
    return result;
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): callers hand the buffer over
std::int32_t CLz4::compress(std::shared_ptr<buffer_t> source, std::shared_ptr<buffer_t>& destination,
                            BlockHeader& header) {
    return CompressWith(LZ4_compress_default, *source, destination, header);
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): callers hand the buffer over
std::uint32_t CLz4::decompress(const BlockHeader& header, std::shared_ptr<buffer_t> source,
                               std::shared_ptr<buffer_t>& destination) {
    if ((header.magicAndFlags & kMagicMask) != kMagic) {
        throw exc::CRuntimeExc("Failed to decompress LZ4 block: incorrect block header.");
    }
    auto unpacked = MakeDestination(header, source->size());
    char nothing = 0;
    const int result = LZ4_decompress_safe(DataOf(*source, nothing), DataOf(*unpacked, nothing), IntOf(source->size()),
                                           IntOf(unpacked->size()));
    if (result < 0 || static_cast<std::uint32_t>(result) != header.uncompressedLength) {
        throw exc::CRuntimeExc(
            "Failed to decompress LZ4 block: Incorrect decompression result or length (result: '%1', expected length: "
            "'%2').",
            result, static_cast<std::uint32_t>(header.uncompressedLength));
    }
    if ((header.magicAndFlags & kChecksumFlag) != 0) {
        CompareChecksum(header, *unpacked);
    }
    destination = std::move(unpacked);
    return static_cast<std::uint32_t>(result);
}

void CLz4::compressToFile(std::shared_ptr<buffer_t> source, const std::string& path) {
    BlockHeader header;
    std::shared_ptr<buffer_t> packed;
    compress(std::move(source), packed, header);
    const auto file = posix::posix_file_t::OpenOrCreate4Write(path, false, 0);
    file->Write(&header, sizeof header);
    file->Write(packed->data(), packed->size());
}

std::shared_ptr<buffer_t> CLz4::decompressFromFile(const std::string& path) {
    const auto file = posix::posix_file_t::Open4Read(path, false);
    BlockHeader header{};
    file->Read(&header, sizeof header);
    // A file without room for a header makes this a length that no array can have.
    auto packed = std::make_shared<buffer_t>(file->GetSize() - sizeof header);
    packed->resize(file->Read(packed->data(), packed->size()));  // less when the file was cut since
    std::shared_ptr<buffer_t> unpacked;
    decompress(header, std::move(packed), unpacked);
    return unpacked;
}

}  // namespace tarn::blobfs
