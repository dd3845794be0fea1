#include "tarn/blocks/block_content.h"

#include "mirrowen/exc/runtime_exc.h"

namespace tarn::blocks {

void CheckFollows(std::uint64_t blockOffset, std::uint64_t position) {
    if (blockOffset != position) {
        throw exc::CRuntimeExc(
            "Block offset in source file differs from the current write position in target file. Block offset: [%1]. "
            "Write offset: [%2].",
            blockOffset, position);
    }
}

void CheckNotPacked(const io::block::CFibBlock& block) {
    if (block.GetDataBlock().GetCompression() != io::block::EBufTransformType::eNone) {
        throw exc::CRuntimeExc("The given block is packed.");
    }
}

std::span<const std::byte> ContentOf(const io::block::CFibBlock& block) {
    const auto& buffer = block.GetDataBlock().GetContentPtr();
    const auto content =
        buffer ? std::span(std::as_const(*buffer).Data(), buffer->Size()) : std::span<const std::byte>();
    if (block.GetIdentity().size != content.size()) {
        throw exc::CRuntimeExc(
            "Declared size of the data and the length of the supplied buffer are different. Declared data size: [%1]. "
            "Buffer length: [%2].",
            block.GetIdentity().size, content.size());
    }
    return content;
}

}  // namespace tarn::blocks
