#include "tarn/blobfs/blob_cmd.h"

#include <cstdlib>
#include <cstring>
#include <new>

namespace tarn::blobfs {

BlobCmd::BlobCmd(eBlobCmd type, std::size_t pathLength, const char* path, std::uint32_t bodyLength) {
    // The block is measured with the path's real length, so that even one that the header cannot hold stays within it.
    const std::size_t total = sizeof(BlobCmd_Header) + pathLength + bodyLength;
    block_ = static_cast<BlobCmd_Header*>(std::malloc(total));
    if (block_ == nullptr) {
        throw std::bad_alloc();
    }
    block_->totalLength = static_cast<std::uint32_t>(total);
    block_->type = static_cast<std::uint32_t>(type);
    block_->pathLength = static_cast<std::uint16_t>(pathLength);
    if (pathLength != 0) {
        std::memcpy(block_ + 1, path, pathLength);
    }
}

BlobCmd::~BlobCmd() {
    std::free(block_);
}

char* BlobCmd::body() noexcept {
    return reinterpret_cast<char*>(block_ + 1) + block_->pathLength;
}

}  // namespace tarn::blobfs
