#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <utility>

#include "mirrowen/io/area/area.h"
#include "mirrowen/io/block/fib_block.h"
#include "mirrowen/pool/obj_pool.h"
#include "tarn/export.h"

/// What the writers of blocks have in common.
namespace tarn::blocks {

inline constexpr std::string_view kCannotAppend =
    "Cannot append file block to the end of file. File: [%1]. Write position: [%2].";

/// For writers that never seek. Throws `exc::CRuntimeExc` "Block offset in source file differs from the current write
/// position in target file. Block offset: [%1]. Write offset: [%2]." unless both are the same.
TARN_API void CheckFollows(std::uint64_t blockOffset, std::uint64_t position);

/// Throws `exc::CRuntimeExc` "The given block is packed." unless the compression value is all ones.
TARN_API void CheckNotPacked(const io::block::CFibBlock& block);

/// The content of a data block; a block without content counts as empty. Throws `exc::CRuntimeExc` "Declared size of
/// the data and the length of the supplied buffer are different. Declared data size: [%1]. Buffer length: [%2]." unless
/// it is as long as the block's identity says.
TARN_API std::span<const std::byte> ContentOf(const io::block::CFibBlock& block);

/// Hands the blocks that are still there to `write` in the order of their indices; the area lets go of each right
/// after, so that it returns to its pool at once.
template <class Write>
void ForEachBlock(io::area::IArea& area, const Write& write) {
    const std::uint64_t count = area.GetBlockCount();
    for (std::uint64_t index = 0; index < count; ++index) {
        if (auto block = area.GetBlock(index)) {
            write(pool::CPoolPtr<io::block::CFibBlock>(std::move(block)));  // gone when `write` returns
            area.ReleaseBlock(index);
        }
    }
}

}  // namespace tarn::blocks
