#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "mirrowen/io/area/area_write_dev.h"
#include "mirrowen/io/block/fib_block.h"
#include "mirrowen/pool/obj_pool.h"
#include "tarn/export.h"
#include "tarn/file_wstream.h"

namespace tarn {

/// Writes a file from its start without ever seeking: each block must begin where the one before it ended. For new
/// files, on backends of any kind. One thread at a time.
class TARN_API seq_fileblocks_writer_t : public io::area::area_write_dev_t {
  public:
    /// Shares `stream`, which stands at its start; it stays open until `Finish`.
    explicit seq_fileblocks_writer_t(std::shared_ptr<file_wstream_t> stream);
    ~seq_fileblocks_writer_t() override;

    /// The stream's path.
    std::string GetDisplayName() override;
    /// Throws `exc::CNotImplExc` "seq_fileblocks_writer_t::Write": bare bytes are not taken.
    void Write(std::shared_ptr<io::area::area_t> area) override;
    /// Writes the area's blocks by index, whatever its kind and offset; each returns to its pool as soon as it is
    /// written. Errors: of `WriteBlock`.
    void Write(std::shared_ptr<io::area::IArea> area) override;
    /// Flushes and closes the stream; `port` may be empty. Errors are the stream's own.
    void Finish(std::shared_ptr<synch::completion_port_t> port) override;

    /// Writes one block at the current position and returns the position after it. Content must not be packed and must
    /// be as long as the block's identity says; encrypted bytes are written as they are, on purpose. Any failure is
    /// thrown as `exc::CRuntimeExc` "Cannot append file block to the end of file. File: [%1]. Write position: [%2]."
    /// with its cause: "Block offset in source file differs from the current write position in target file. Block
    /// offset: [%1]. Write offset: [%2].", "The given block is packed.", "Declared size of the data and the length of
    /// the supplied buffer are different. Declared data size: [%1]. Buffer length: [%2]." or the stream's.
    std::uint64_t WriteBlock(pool::CPoolPtr<io::block::CFibBlock> block);

  private:
    void StoreBlock(const io::block::CFibBlock& block);

    std::shared_ptr<file_wstream_t> stream_;
    std::uint64_t position_ = 0;
};

}  // namespace tarn
