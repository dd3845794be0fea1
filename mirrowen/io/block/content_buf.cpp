#include "mirrowen/io/block/content_buf.h"

#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/io/block/content_buf_pool.h"

namespace io::block {

pool::CPoolPtr<CContentBuf> CContentBuf::Alloc(std::size_t size) {
    content_buf_pool_t& pool = content_buf_pool_t::Process();
    std::unique_ptr<CContentBuf> buffer = pool.TakeFitting(size);
    if (!buffer) {
        buffer = Make(size);
    }
    buffer->size_ = size;
    return pool::CPoolPtr<CContentBuf>(std::shared_ptr<CContentBuf>(
        buffer.release(), [&pool](CContentBuf* raw) noexcept { pool.GiveBack(std::unique_ptr<CContentBuf>(raw)); }));
}

std::unique_ptr<CContentBuf> CContentBuf::Make(std::size_t size) {
    auto buffer = std::make_unique<CContentBuf>();
    buffer->data_ = std::make_unique_for_overwrite<std::byte[]>(size);
    buffer->capacity_ = size;
    buffer->size_ = size;
    return buffer;
}

void CContentBuf::Reduce(std::size_t size) {
    if (size > size_) {
        throw exc::CRuntimeExc("Content buffer of [%1] bytes cannot be reduced to [%2].", size_, size);
    }
    size_ = size;
}

void CContentBuf::Recycle() noexcept {
    lease_.reset();
    size_ = 0;
}

}  // namespace io::block
