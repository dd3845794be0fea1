#include "agent/verify/content_cursor.h"

namespace agent::verify {

content_cursor_t::content_cursor_t(io::area::area_read_dev_t& source) : source_(source) {}

bool content_cursor_t::Fill() {
    while (left_.size == 0 && !ended_) {
        if (next_ < pieces_.size()) {
            left_ = pieces_[next_++];
            continue;
        }
        pieces_.clear();
        next_ = 0;
        area_ = source_.ReadNext();
        if (area_) {
            pieces_ = copy::PiecesOf(*area_);
        } else {
            ended_ = true;
        }
    }
    return left_.size != 0;
}

void content_cursor_t::Skip(std::uint64_t count) noexcept {
    left_.size -= count;
    if (left_.data != nullptr) {
        left_.data += count;
    }
}

}  // namespace agent::verify
