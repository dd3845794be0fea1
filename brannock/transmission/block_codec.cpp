#include "brannock/transmission/block_codec.h"

#include <lz4.h>
#include <zstd.h>
#include <zstd_errors.h>

#include <new>

#include "mirrowen/exc/runtime_exc.h"

namespace brannock::transmission {

namespace {

using io::block::EBufTransformType;

constexpr int kZstdLevel = 1;  // the fastest of the ordinary levels: the wire must not wait for the packer

[[noreturn]] void RefuseType(EBufTransformType type) {
    throw exc::CRuntimeExc("Unknown block transform [%1].", static_cast<std::uint32_t>(type));
}

// Blocks are 16 MiB at most, so their sizes fit.
std::size_t PackLz4(std::span<const std::byte> raw, std::span<std::byte> out) {
    return static_cast<std::size_t>(LZ4_compress_default(reinterpret_cast<const char*>(raw.data()),
                                                         reinterpret_cast<char*>(out.data()),
                                                         static_cast<int>(raw.size()), static_cast<int>(out.size())));
}

bool UnpackLz4(std::span<const std::byte> packed, std::span<std::byte> out) {
    return LZ4_decompress_safe(reinterpret_cast<const char*>(packed.data()), reinterpret_cast<char*>(out.data()),
                               static_cast<int>(packed.size()),
                               static_cast<int>(out.size())) == static_cast<int>(out.size());
}

}  // namespace

struct block_codec_t::zstd_t {
    ~zstd_t() {
        ZSTD_freeCCtx(packer);
        ZSTD_freeDCtx(unpacker);
    }
    ZSTD_CCtx* packer = nullptr;
    ZSTD_DCtx* unpacker = nullptr;
};

block_codec_t::block_codec_t() : zstd_(std::make_unique<zstd_t>()) {}
block_codec_t::~block_codec_t() = default;

std::size_t block_codec_t::Pack(EBufTransformType type, std::span<const std::byte> raw, std::span<std::byte> out) {
    if (type == EBufTransformType::eLz4) {
        return PackLz4(raw, out);
    }
    if (type != EBufTransformType::eZstd) {
        RefuseType(type);
    }
    if (zstd_->packer == nullptr && (zstd_->packer = ZSTD_createCCtx()) == nullptr) {
        throw std::bad_alloc();
    }
    const std::size_t size =
        ZSTD_compressCCtx(zstd_->packer, out.data(), out.size(), raw.data(), raw.size(), kZstdLevel);
    if (ZSTD_isError(size) == 0) {
        return size;
    }
    if (ZSTD_getErrorCode(size) != ZSTD_error_dstSize_tooSmall) {
        throw exc::CRuntimeExc("Block cannot be packed: %1.", ZSTD_getErrorName(size));
    }
    return 0;
}

void block_codec_t::Unpack(EBufTransformType type, std::span<const std::byte> packed, std::span<std::byte> out) {
    bool good = false;
    if (type == EBufTransformType::eLz4) {
        good = UnpackLz4(packed, out);
    } else if (type == EBufTransformType::eZstd) {
        if (zstd_->unpacker == nullptr && (zstd_->unpacker = ZSTD_createDCtx()) == nullptr) {
            throw std::bad_alloc();
        }
        good = ZSTD_decompressDCtx(zstd_->unpacker, out.data(), out.size(), packed.data(), packed.size()) == out.size();
    } else {
        RefuseType(type);
    }
    if (!good) {
        throw exc::CRuntimeExc("Packed block cannot be unpacked ([%1], [%2] bytes).",
                               io::block::str_from_buftransformtype(type), packed.size());
    }
}

}  // namespace brannock::transmission
