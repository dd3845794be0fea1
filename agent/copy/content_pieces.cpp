#include "agent/copy/content_pieces.h"

namespace agent::copy {

std::vector<content_piece_t> PiecesOf(const io::area::IArea& area) {
    std::vector<content_piece_t> pieces;
    for (std::uint64_t index = 0; index < area.GetBlockCount(); ++index) {
        const auto block = area.GetBlock(index);
        if (block->IsSparseBlock()) {
            pieces.push_back({nullptr, block->GetIdentity().size});
        } else {
            const io::block::CContentBuf& content = block->GetDataBlock().GetContent();
            pieces.push_back({content.Data(), content.Size()});
        }
    }
    return pieces;
}

}  // namespace agent::copy
