#include "mirrowen/io/block/fib_block.h"

#include <utility>

namespace io::block {

namespace {

constexpr std::size_t kMaxFreeBlocks = 256;

// Never destroyed, so blocks may come back while the process ends.
pool::CObjPool<CFibBlock>& Blocks() {
    static const auto* const pool =
        new std::shared_ptr<pool::CObjPool<CFibBlock>>(pool::CObjPool<CFibBlock>::Create(kMaxFreeBlocks));
    return **pool;
}

}  // namespace

pool::CPoolPtr<CFibBlock> CFibBlock::NewDataBlock(std::uint64_t offset, std::uint64_t index,
                                                  pool::CPoolPtr<CContentBuf> content) {
    const SBlockIdentity identity{.id = index, .offset = offset, .size = content->Size()};
    return NewBlock(identity, CDataBlock(std::move(content), EBufTransformType::eNone, false));
}

pool::CPoolPtr<CFibBlock> CFibBlock::NewBlock(const SBlockIdentity& identity, CDataBlock data) {
    pool::CPoolPtr<CFibBlock> block = Blocks().Get();
    block->identity_ = identity;
    block->data_ = std::move(data);
    block->sparse_ = false;
    return block;
}

pool::CPoolPtr<CFibBlock> CFibBlock::NewSparseBlock(std::uint64_t offset, std::uint64_t index, std::uint64_t size) {
    pool::CPoolPtr<CFibBlock> block = Blocks().Get();
    block->identity_ = {.id = index, .offset = offset, .size = size};
    block->sparse_ = true;
    return block;
}

void CFibBlock::Recycle() noexcept {
    identity_ = {};
    data_ = {};
    sparse_ = false;
}

}  // namespace io::block
