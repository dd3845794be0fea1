#pragma once

#include <cstddef>
#include <memory>
#include <span>

#include "mirrowen/io/block/buf_transform.h"

namespace brannock::transmission {

/// Packs and unpacks single blocks. Keeps its working memory from block to block; one thread at a time.
class block_codec_t {
  public:
    block_codec_t();
    ~block_codec_t();

    /// Packs `raw` into `out` and returns the packed size, or 0 when it does not fit there: an `out` of one byte less
    /// than `raw` keeps only what shrinks. An unknown type throws as for Unpack.
    std::size_t Pack(io::block::EBufTransformType type, std::span<const std::byte> raw, std::span<std::byte> out);

    /// Unpacks into exactly `out`, never beyond. Throws `exc::CRuntimeExc` "Unknown block transform [%1]." (the type's
    /// number) or "Packed block cannot be unpacked ([%1], [%2] bytes).".
    void Unpack(io::block::EBufTransformType type, std::span<const std::byte> packed, std::span<std::byte> out);

  private:
    struct zstd_t;
    std::unique_ptr<zstd_t> zstd_;
};

}  // namespace brannock::transmission
