#include "tarn/mem_rstream.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "mirrowen/exc/runtime_exc.h"

namespace tarn {

mem_rstream_t::mem_rstream_t(const std::string& path, std::shared_ptr<cnt::array_t<char>> buffer)
    : path_(path), buffer_(std::move(buffer)) {}

mem_rstream_t::~mem_rstream_t() = default;

std::string mem_rstream_t::GetPath() {
    return path_;
}

std::uint64_t mem_rstream_t::GetFileSize() {
    return buffer_->size();
}

void mem_rstream_t::SeekTo(std::uint64_t /*offset*/) {
    throw exc::CRuntimeExc("mem_rstream_t::SeekTo is not implemented.");
}

std::uint64_t mem_rstream_t::ReadExc(void* buffer, std::uint64_t count) {
    const std::uint64_t size = buffer_->size();
    if (position_ >= size) {
        return 0;
    }
    const std::uint64_t part = std::min(count, size - position_);
    if (part != 0) {
        std::memcpy(buffer, buffer_->data() + position_, part);
    }
    position_ += part;
    return part;
}

void mem_rstream_t::FinishRead() {}

}  // namespace tarn
