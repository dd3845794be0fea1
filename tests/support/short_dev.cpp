#include "tests/support/short_dev.h"

#include <algorithm>
#include <utility>

namespace tests {

short_dev_t::short_dev_t(std::shared_ptr<io::io_dev_t> inner, std::size_t readPiece, std::size_t writeRoom)
    : inner_(std::move(inner)), readPiece_(readPiece), writeRoom_(writeRoom) {}

short_dev_t::~short_dev_t() = default;

std::size_t short_dev_t::Read(void* buffer, std::size_t count) {
    return inner_->Read(buffer, std::min(count, readPiece_));
}

std::size_t short_dev_t::Write(const void* buffer, std::size_t count) {
    const std::size_t taken = inner_->Write(buffer, std::min(count, writeRoom_));
    writeRoom_ -= taken;
    return taken;
}

void short_dev_t::Flush() {
    inner_->Flush();
}

}  // namespace tests
