#include "agent/copy/content_hasher.h"

#include <algorithm>
#include <utility>

#include "agent/copy/content_pieces.h"

namespace agent::copy {

void content_hasher_t::AddUpTo(const io::area::IArea& area, std::uint64_t limit) {
    for (const content_piece_t& piece : PiecesOf(area)) {
        const std::uint64_t count = std::min(piece.size, limit);
        if (piece.data == nullptr) {
            digest_.AddZeroes(count);
        } else {
            digest_.Add({piece.data, static_cast<std::size_t>(count)});
        }
        size_ += count;
        limit -= count;
    }
}

std::uint64_t HashFirst(io::area::area_read_dev_t& source, std::uint64_t length, content_hasher_t& hasher) {
    std::uint64_t done = 0;
    while (done < length) {
        const auto area = source.ReadNext();
        if (!area) {
            break;
        }
        hasher.AddUpTo(*area, length - done);
        done += std::min(area->GetSize(), length - done);
    }
    return done;
}

hashed_source_t::hashed_source_t(std::shared_ptr<io::area::area_read_dev_t> inner,
                                 std::shared_ptr<content_hasher_t> hasher)
    : inner_(std::move(inner)), hasher_(std::move(hasher)) {}

hashed_source_t::~hashed_source_t() = default;

std::shared_ptr<io::area::IArea> hashed_source_t::ReadNext() {
    auto area = inner_->ReadNext();
    if (area) {
        hasher_->Add(*area);
    }
    return area;
}

std::string hashed_source_t::GetDisplayName() {
    return inner_->GetDisplayName();
}

void hashed_source_t::SetEmptyBlocksMaximum(std::uint64_t maximum) {
    inner_->SetEmptyBlocksMaximum(maximum);
}

bool hashed_source_t::KnowsHoles() const noexcept {
    return io::area::KnowsHoles(*inner_);
}

}  // namespace agent::copy
