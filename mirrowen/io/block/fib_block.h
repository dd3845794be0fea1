#pragma once

#include <cstddef>
#include <cstdint>

#include "mirrowen/export.h"
#include "mirrowen/io/block/buf_transform.h"
#include "mirrowen/io/block/content_buf.h"
#include "mirrowen/pool/obj_pool.h"

namespace io::block {

/// Which piece of the source file a block is.
struct SBlockIdentity {
    std::uint64_t id = 0;      ///< running number of the block in the item, from 0
    std::uint64_t offset = 0;  ///< bytes from the start of the source file
    std::uint64_t size = 0;    ///< bytes of the source file that the block stands for
};

/// The content of a block: bytes, how they are packed and whether they are encrypted.
class MIRROWEN_API CDataBlock {
  public:
    CDataBlock() = default;
    CDataBlock(pool::CPoolPtr<CContentBuf> content, EBufTransformType compression, bool encrypted) noexcept
        : content_(std::move(content)), compression_(compression), encrypted_(encrypted) {}

    const CContentBuf& GetContent() const noexcept { return *content_; }
    const pool::CPoolPtr<CContentBuf>& GetContentPtr() const noexcept { return content_; }
    /// eNone (all ones) for bytes that are not packed.
    EBufTransformType GetCompression() const noexcept { return compression_; }
    bool IsEncrypted() const noexcept { return encrypted_; }

  private:
    pool::CPoolPtr<CContentBuf> content_;
    EBufTransformType compression_ = EBufTransformType::eNone;
    bool encrypted_ = false;
};

/// One block of a file: its identity and either content or the mark that it is a run of zeroes. Pooled; immutable once
/// it is handed on, so any thread may read it.
class MIRROWEN_API CFibBlock {
  public:
    /// A block with content, not packed and not encrypted; its size is the buffer's.
    static pool::CPoolPtr<CFibBlock> NewDataBlock(std::uint64_t offset, std::uint64_t index,
                                                  pool::CPoolPtr<CContentBuf> content);
    /// A block of any content; `identity.size` need not be the content's length (packed bytes).
    static pool::CPoolPtr<CFibBlock> NewBlock(const SBlockIdentity& identity, CDataBlock data);
    /// A run of `size` zero bytes.
    static pool::CPoolPtr<CFibBlock> NewSparseBlock(std::uint64_t offset, std::uint64_t index, std::uint64_t size);

    const SBlockIdentity& GetIdentity() const noexcept { return identity_; }
    bool IsSparseBlock() const noexcept { return sparse_; }
    /// The content; empty for a sparse block.
    const CDataBlock& GetDataBlock() const noexcept { return data_; }

    /// Called by the pool when the last holder has let go.
    void Recycle() noexcept;

  private:
    SBlockIdentity identity_;
    CDataBlock data_;
    bool sparse_ = false;
};

}  // namespace io::block
