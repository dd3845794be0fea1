#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "mirrowen/cnt/array.h"
#include "mirrowen/io/block/volatile_zero_buf.h"
#include "mirrowen/io/mem_dev.h"
#include "tarn/export.h"
#include "tarn/file_wstream.h"
#include "tarn/memfs/memfs_path.h"

namespace tarn::memfs {

/// Writes one file in memory, from its start to its end. The file is there, empty, as soon as the stream is, and
/// readers see each byte from the moment it is written; the end of the stream changes nothing. One thread at a time; a
/// reader on another one is not synchronised with it.
class TARN_API memfs_file_wstream_t : public file_wstream_t {
  public:
    /// Makes a new slot under the path's name, in place of one that is there. Throws `exc::CRuntimeExc` "MemFS: Unable
    /// to initialize write stream. File path: [%1]." over the cause.
    explicit memfs_file_wstream_t(const memfs_path_t& path);
    ~memfs_file_wstream_t() override;

    /// Refuses: `exc::CRuntimeExc` "MemFs does not support seek operation.".
    void SeekTo(std::uint64_t offset) override;

    /// Appends the bytes, also after Close. Throws `exc::CRuntimeExc` "MemFS: Cannot write data to the write stream.
    /// File path: [%1]. Data size: [%2]. Current buffer size: [%3]." over the cause.
    std::uint64_t WriteExc(const void* buffer, std::uint64_t count) override;

    /// Appends zeroes through the stream's own WriteExc: memory has no holes.
    std::uint64_t WriteZeroes(std::uint64_t count) override;

    /// "MemFs://" and the slot's name, however the caller spelt the prefix.
    std::string GetPath() override;

    /// These two do nothing, and nothing is posted to the port.
    void Flush() override;
    void Close(std::shared_ptr<synch::completion_port_t> port) override;

  private:
    memfs_path_t path_;
    std::shared_ptr<cnt::array_t<char>> buffer_;
    std::shared_ptr<io::mem_dev_tt<cnt::array_t<char>>> device_;
    io::block::CVolatileZeroBuf zeroes_;
};

}  // namespace tarn::memfs
