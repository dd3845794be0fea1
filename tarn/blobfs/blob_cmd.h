#pragma once

#include <cstddef>
#include <cstdint>

#include "tarn/blobfs/blob_layout.h"
#include "tarn/export.h"

namespace tarn::blobfs {

/// One command in memory: header, path and body in one block, as they stand in a blob file. One thread at a time.
class TARN_API BlobCmd {
  public:
    /// Makes the block and fills in header and path; the body is the caller's to write before the block is read. `path`
    /// holds `pathLength` bytes and may be null for none, which keeps the previous command's path. Throws
    /// `std::bad_alloc`.
    ///
    /// The header has room for paths of up to 65,535 bytes. A longer one is not refused: the header then holds the low
    /// 16 bits of its length, and the reader takes the command for one on another path.
    BlobCmd(eBlobCmd type, std::size_t pathLength, const char* path, std::uint32_t bodyLength);
    BlobCmd(const BlobCmd&) = delete;
    BlobCmd& operator=(const BlobCmd&) = delete;
    ~BlobCmd();

    /// Bytes of the whole command, as the header has it.
    std::uint32_t length() const noexcept { return block_->totalLength; }
    /// The block; it lives as long as the command.
    const char* buffer() const noexcept { return reinterpret_cast<const char*>(block_); }
    /// Where the body begins, behind the path.
    char* body() noexcept;

  private:
    BlobCmd_Header* block_;
};

}  // namespace tarn::blobfs
