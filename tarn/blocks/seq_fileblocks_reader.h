#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "mirrowen/io/area/area_read_dev.h"
#include "mirrowen/io/block/block_math.h"
#include "mirrowen/io/block/fib_block.h"
#include "mirrowen/pool/obj_pool.h"
#include "tarn/export.h"
#include "tarn/file_rstream.h"

namespace tarn {

/// Reads a file from its start as areas of one block each. Buffers and blocks come from the process's pools and go back
/// when the consumer drops them; the reader keeps none. One thread at a time; what it hands out may be dropped on any.
class TARN_API seq_fileblocks_reader_t : public io::area::area_read_dev_t {
  public:
    /// Shares `stream`, which stands at its start. `blockGranularity` in bytes, limits and error as
    /// `io::block::block_math_t`; `end` is the number of bytes to read.
    seq_fileblocks_reader_t(std::shared_ptr<file_rstream_t> stream, std::uint64_t blockGranularity, std::uint64_t end);
    ~seq_fileblocks_reader_t() override;

    /// The next block as an `io::area::CDataArea` whose metadata carries the total handed out so far, or an empty
    /// pointer when `end` is reached or the stream has no more bytes (which finishes the stream, once). A stream that
    /// gives fewer bytes than asked makes a shorter block. Any failure is thrown as `exc::CRuntimeExc` "Unable to read
    /// file block. File: [%1]. Offset: [%2]. Block granularity: [%3]." with its cause.
    std::shared_ptr<io::area::IArea> ReadNext() override;
    /// The stream's path.
    std::string GetDisplayName() override;
    /// Does nothing: this reader makes no empty blocks.
    void SetEmptyBlocksMaximum(std::uint64_t maximum) override;

    /// The next block, or an empty pointer as above. Errors are the stream's own.
    pool::CPoolPtr<io::block::CFibBlock> TryReadBlock();
    /// Ends the reading, the stream's too; always returns an empty pointer.
    pool::CPoolPtr<io::block::CFibBlock> FinishRead();
    /// Sets the total of data bytes that the areas' metadata goes on from.
    void SetReadDataSize(std::uint64_t size);

  private:
    std::shared_ptr<io::area::IArea> ReadArea();

    std::shared_ptr<file_rstream_t> stream_;
    std::uint64_t position_ = 0;  ///< never above end_
    std::uint64_t end_;
    io::block::block_math_t blockMath_;
    bool finished_ = false;
    std::uint64_t readSize_ = 0;
    std::uint64_t blockIndex_ = 0;
};

}  // namespace tarn
