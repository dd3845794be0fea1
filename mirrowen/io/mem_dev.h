#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <utility>

#include "mirrowen/io/io_dev.h"

namespace io {

/// A device over a growable buffer in memory (`cnt::array_t<char>` or anything with data, size and resize). Reading and
/// writing share one position; writing past the end grows the buffer. The buffer is shared with its other holders and
/// not synchronised.
template <class Buffer>
class mem_dev_tt final : public io_dev_t {
  public:
    explicit mem_dev_tt(std::shared_ptr<Buffer> buffer) : buffer_(std::move(buffer)) {}
    mem_dev_tt() : mem_dev_tt(std::make_shared<Buffer>()) {}

    std::size_t Read(void* target, std::size_t count) override {
        const std::size_t part = std::min(count, Remaining());
        if (part != 0) {
            std::memcpy(target, buffer_->data() + position_, part);
            position_ += part;
        }
        return part;
    }

    std::size_t Write(const void* source, std::size_t count) override {
        if (count != 0) {
            if (count > Remaining()) {
                buffer_->resize(position_ + count);
            }
            std::memcpy(buffer_->data() + position_, source, count);
            position_ += count;
        }
        return count;
    }

    void Flush() override {}

    /// Offset of the next byte to read or write.
    std::size_t GetOffset() const noexcept { return position_; }
    /// Bytes between the position and the end of the buffer.
    std::size_t Remaining() const noexcept { return buffer_->size() > position_ ? buffer_->size() - position_ : 0; }
    /// Moves to `offset` from the start; at most the buffer's size.
    void Rewind(std::size_t offset = 0) noexcept { position_ = std::min<std::size_t>(offset, buffer_->size()); }
    const std::shared_ptr<Buffer>& GetBuffer() const noexcept { return buffer_; }

  private:
    std::shared_ptr<Buffer> buffer_;
    std::size_t position_ = 0;
};

}  // namespace io
