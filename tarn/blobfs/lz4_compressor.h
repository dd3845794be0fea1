#pragma once

#include <cstdint>
#include <memory>

#include "mirrowen/cnt/array.h"
#include "tarn/blobfs/lz4.h"

namespace tarn::blobfs {

/// What packs one block: `LZ4_compress_default`, or in a test something that fails.
using lz4_compressor_t = int (*)(const char* source, char* destination, int sourceLength, int capacity);

/// `CLz4::compress` by the compressor given.
std::int32_t CompressWith(lz4_compressor_t compressor, const cnt::array_t<char>& source,
                          std::shared_ptr<cnt::array_t<char>>& destination, BlockHeader& header);

}  // namespace tarn::blobfs
