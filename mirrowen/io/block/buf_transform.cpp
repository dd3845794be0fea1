#include "mirrowen/io/block/buf_transform.h"

namespace io::block {

std::string_view str_from_buftransformtype(EBufTransformType type) noexcept {
    switch (type) {
        case EBufTransformType::eLz4:
            return "lz4";
        case EBufTransformType::eZstd:
            return "zstd";
        case EBufTransformType::eNone:
            return "none";
    }
    return "unknown";
}

bool IsCompression(EBufTransformType type) noexcept {
    return type == EBufTransformType::eLz4 || type == EBufTransformType::eZstd;
}

SBufCompressionSpec SBufCompressionSpec::GetPreserveSpec() noexcept {
    SBufCompressionSpec spec(EBufTransformType::eNone);
    spec.forced_ = false;
    return spec;
}

}  // namespace io::block
