#pragma once

#include <cstring>
#include <string>
#include <string_view>
#include <utility>

#include "mirrowen/io/block/fib_block.h"

namespace tests {

/// A content buffer that holds `bytes`.
inline pool::CPoolPtr<io::block::CContentBuf> ContentOf(std::string_view bytes) {
    auto buffer = io::block::CContentBuf::Alloc(bytes.size());
    if (!bytes.empty()) {
        std::memcpy(buffer->Data(), bytes.data(), bytes.size());
    }
    return buffer;
}

/// A plain block of a file.
inline pool::CPoolPtr<io::block::CFibBlock> DataBlock(std::uint64_t offset, std::string_view bytes,
                                                      std::uint64_t index = 0) {
    return io::block::CFibBlock::NewDataBlock(offset, index, ContentOf(bytes));
}

/// A block with every choice open: what its identity says need not fit its content.
inline pool::CPoolPtr<io::block::CFibBlock> OddBlock(
    io::block::SBlockIdentity identity, std::string_view bytes,
    io::block::EBufTransformType compression = io::block::EBufTransformType::eNone, bool encrypted = false) {
    return io::block::CFibBlock::NewBlock(identity, io::block::CDataBlock(ContentOf(bytes), compression, encrypted));
}

inline std::string BytesOf(const io::block::CFibBlock& block) {
    const auto& content = block.GetDataBlock().GetContent();
    return {reinterpret_cast<const char*>(content.Data()), content.Size()};
}

}  // namespace tests
