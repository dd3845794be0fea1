#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "mirrowen/export.h"

namespace io::block {

/// How a block's bytes were changed on their way. The numbers stand on the wire and in a block's compression field.
enum class EBufTransformType : std::uint32_t {
    eLz4 = 1,
    eZstd = 2,
    eNone = 0xFFFFFFFF,  ///< not packed
};

/// "lz4", "zstd", "none", "unknown".
MIRROWEN_API std::string_view str_from_buftransformtype(EBufTransformType type) noexcept;

/// Whether this build can pack and unpack the type; false for eNone.
MIRROWEN_API bool IsCompression(EBufTransformType type) noexcept;

/// The transforms that a transfer applies, in order; the receiver of an empty history accepts every known one.
class MIRROWEN_API buf_transforms_history_t {
  public:
    void PushTransform(EBufTransformType type) { transforms_.push_back(type); }
    bool IsEmpty() const noexcept { return transforms_.empty(); }
    const std::vector<EBufTransformType>& GetTransforms() const noexcept { return transforms_; }

  private:
    std::vector<EBufTransformType> transforms_;
};

/// What a sender wants done with the blocks: pack them with one transform, or let them travel as they are.
class MIRROWEN_API SBufCompressionSpec {
  public:
    /// Forces compression with `type` (eNone: no real type, nothing is packed).
    explicit SBufCompressionSpec(EBufTransformType type) noexcept : type_(type), forced_(true) {}

    /// Leaves blocks as the source delivers them.
    static SBufCompressionSpec GetPreserveSpec() noexcept;

    bool IsCompressionForced() const noexcept { return forced_; }
    EBufTransformType GetTransformType() const noexcept { return type_; }

  private:
    EBufTransformType type_;
    bool forced_;
};

}  // namespace io::block
