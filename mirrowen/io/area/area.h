#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "mirrowen/export.h"
#include "mirrowen/io/block/fib_block.h"
#include "mirrowen/pool/obj_pool.h"

namespace io::area {

/// What an area holds. The numbers belong to the interface.
enum class EAreaKind : std::uint32_t { eUnknown = 0, eData = 1, eSparse = 2, eNothing = 3 };

/// What travels beside an area's blocks.
class MIRROWEN_API SAreaMeta {
  public:
    /// Total of data bytes that the reader has handed out, this area included.
    void SetReadSize(std::uint64_t size) noexcept { readSize_ = size; }
    std::uint64_t GetReadSize() const noexcept { return readSize_; }

  private:
    std::uint64_t readSize_ = 0;
};

/// A piece of a file on its way through the transmission engine: some blocks, or a run of zeroes, or nothing. Handed
/// from thread to thread, used by one at a time.
class MIRROWEN_API IArea {
  public:
    virtual ~IArea();
    virtual EAreaKind GetKind() const = 0;
    /// Bytes from the start of the file.
    virtual std::uint64_t GetOffset() const = 0;
    /// Bytes of the file that the area stands for.
    virtual std::uint64_t GetSize() const = 0;
    virtual std::uint64_t GetBlockCount() const = 0;
    /// Block `index`, 0 <= index < GetBlockCount(); empty when it has been released.
    virtual pool::CPoolPtr<block::CFibBlock> GetBlock(std::uint64_t index) const = 0;
    virtual SAreaMeta& GetMeta() = 0;
    virtual const SAreaMeta& GetMeta() const = 0;
    /// Lets go of block `index`, so that it returns to its pool at once.
    virtual void ReleaseBlock(std::uint64_t index) = 0;
};

/// An area as bare bytes without blocks, as disks deliver it.
struct area_t {
    std::uint64_t offset = 0;
    std::vector<std::byte> bytes;
};

/// An area of one block.
class MIRROWEN_API CDataArea final : public IArea {
  public:
    /// `id` is the block identity's id. The kind is eData, or eSparse for a sparse block. An empty block throws
    /// `exc::CRuntimeExc` "Data area needs a block.".
    CDataArea(std::uint64_t id, pool::CPoolPtr<block::CFibBlock> block);
    ~CDataArea() override;

    std::uint64_t GetId() const noexcept { return id_; }
    EAreaKind GetKind() const override;
    std::uint64_t GetOffset() const override { return identity_.offset; }
    std::uint64_t GetSize() const override { return identity_.size; }
    std::uint64_t GetBlockCount() const override { return 1; }
    pool::CPoolPtr<block::CFibBlock> GetBlock(std::uint64_t index) const override;
    SAreaMeta& GetMeta() override { return meta_; }
    const SAreaMeta& GetMeta() const override { return meta_; }
    void ReleaseBlock(std::uint64_t index) override;

  private:
    std::uint64_t id_;
    block::SBlockIdentity identity_;
    bool sparse_;
    pool::CPoolPtr<block::CFibBlock> block_;
    SAreaMeta meta_;
};

}  // namespace io::area
