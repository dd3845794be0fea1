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

/// Writes blocks to their own offsets in a file, so they may come in any order and leave ranges out: for changing an
/// existing file. The stream must be able to seek. One thread at a time.
class TARN_API rnd_fileblocks_writer_t : public io::area::area_write_dev_t {
  public:
    /// Shares `stream`; it stays open until `Finish`.
    explicit rnd_fileblocks_writer_t(std::shared_ptr<file_wstream_t> stream);
    ~rnd_fileblocks_writer_t() override;

    /// The stream's path.
    std::string GetDisplayName() override;
    /// Throws `exc::CNotImplExc` "rnd_fileblocks_writer_t::Write": bare bytes are not taken.
    void Write(std::shared_ptr<io::area::area_t> area) override;
    /// Writes an area: nothing for kind eNothing, zeroes for eSparse, otherwise its blocks by index; each returns to
    /// its pool as soon as it is written. Errors: of `WriteBlock`, and the stream's own from seeking and writing
    /// zeroes.
    void Write(std::shared_ptr<io::area::IArea> area) override;
    /// Flushes and closes the stream; `port` may be empty. Errors are the stream's own.
    void Finish(std::shared_ptr<synch::completion_port_t> port) override;

    /// Writes one block at its offset and returns the bytes of blocks written so far. Content must be neither packed
    /// nor encrypted and as long as the block's identity says. Any failure is thrown as `exc::CRuntimeExc` "Cannot
    /// append file block to the end of file. File: [%1]. Write position: [%2]." (the position being that count of
    /// bytes) with its cause: "The given block is packed.", "The source data is encrypted.", "Declared size of the data
    /// and the length of the supplied buffer are different. Declared data size: [%1]. Buffer length: [%2]." or the
    /// stream's.
    std::uint64_t WriteBlock(pool::CPoolPtr<io::block::CFibBlock> block);

  private:
    void StoreBlock(const io::block::CFibBlock& block);

    std::shared_ptr<file_wstream_t> stream_;
    std::uint64_t position_ = 0;
};

}  // namespace tarn
