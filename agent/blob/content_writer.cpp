#include "agent/blob/content_writer.h"

#include <utility>

#include "agent/copy/content_pieces.h"

namespace agent::blob {

content_writer_t::content_writer_t(write_t write) : write_(std::move(write)) {}

void content_writer_t::Put(const io::area::IArea& area) {
    for (const copy::content_piece_t& piece : copy::PiecesOf(area)) {
        if (piece.data != nullptr) {
            WriteAt(position_, piece.data, piece.size);
            written_ += piece.size;
        }
        position_ += piece.size;
    }
}

void content_writer_t::Finish() {
    if (position_ > end_) {
        WriteAt(position_ - 1, "", 1);
    }
}

void content_writer_t::WriteAt(std::uint64_t offset, const void* data, std::uint64_t size) {
    write_(offset, data, size);
    end_ = offset + size;
}

}  // namespace agent::blob
