#include "agent/copy/whole_content.h"

#include <utility>

#include "agent/copy/content_pieces.h"
#include "mirrowen/exc/runtime_exc.h"

namespace agent::copy {

whole_content_t::whole_content_t(io::area::area_read_dev_t& source, std::uint64_t size) {
    std::uint64_t offset = 0;
    while (auto area = source.ReadNext()) {
        if (area->GetOffset() != offset) {
            throw exc::CRuntimeExc("[%1] goes on at [%2] instead of [%3].", source.GetDisplayName(), area->GetOffset(),
                                   offset);
        }
        offset += area->GetSize();
        if (offset > size) {
            break;
        }
        Add(std::move(area));
    }
    if (offset != size) {
        throw exc::CRuntimeExc("[%1] has [%2] bytes instead of [%3].", source.GetDisplayName(), offset, size);
    }
}

void whole_content_t::Add(std::shared_ptr<io::area::IArea> area) {
    std::uint64_t offset = area->GetOffset();
    for (const content_piece_t& piece : PiecesOf(*area)) {
        if (piece.data != nullptr && piece.size != 0) {
            extents_.push_back({offset, {piece.data, static_cast<std::size_t>(piece.size)}});
        }
        offset += piece.size;
    }
    areas_.push_back(std::move(area));
}

}  // namespace agent::copy
