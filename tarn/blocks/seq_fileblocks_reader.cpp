#include "tarn/blocks/seq_fileblocks_reader.h"

#include <algorithm>
#include <cstddef>
#include <exception>
#include <utility>

#include "mirrowen/exc/regen.h"
#include "mirrowen/io/area/area.h"
#include "mirrowen/io/block/content_buf.h"
#include "mirrowen/util/numeric_cast.h"

namespace tarn {

seq_fileblocks_reader_t::seq_fileblocks_reader_t(std::shared_ptr<file_rstream_t> stream, std::uint64_t blockGranularity,
                                                 std::uint64_t end)
    : stream_(std::move(stream)), end_(end), blockMath_(blockGranularity) {}

seq_fileblocks_reader_t::~seq_fileblocks_reader_t() = default;

std::shared_ptr<io::area::IArea> seq_fileblocks_reader_t::ReadNext() {
    if (finished_) {
        return nullptr;
    }
    try {
        return ReadArea();
    } catch (const std::exception&) {
        exc::RegenExc("Unable to read file block. File: [%1]. Offset: [%2]. Block granularity: [%3].",
                      stream_->GetPath(), position_, blockMath_.GetStandardBlockSize());
    }
}

std::string seq_fileblocks_reader_t::GetDisplayName() {
    return stream_->GetPath();
}

void seq_fileblocks_reader_t::SetEmptyBlocksMaximum(std::uint64_t /*maximum*/) {}

void seq_fileblocks_reader_t::SetReadDataSize(std::uint64_t size) {
    readSize_ = size;
}

std::shared_ptr<io::area::IArea> seq_fileblocks_reader_t::ReadArea() {
    auto block = TryReadBlock();
    if (!block) {
        return nullptr;
    }
    const auto area = std::make_shared<io::area::CDataArea>(block->GetIdentity().id, block);
    if (area->GetKind() == io::area::EAreaKind::eData) {
        readSize_ += area->GetSize();
    }
    area->GetMeta().SetReadSize(readSize_);
    block.reset();
    return area;
}

pool::CPoolPtr<io::block::CFibBlock> seq_fileblocks_reader_t::TryReadBlock() {
    const std::uint64_t wanted = std::min(blockMath_.GetStandardBlockSize(), end_ - position_);
    if (wanted == 0) {
        return FinishRead();
    }
    auto buffer = io::block::CContentBuf::Alloc(util::numeric_cast<std::size_t>(wanted));
    const std::uint64_t count = stream_->ReadExc(buffer->Data(), wanted);
    if (count == 0) {
        return FinishRead();
    }
    buffer->Reduce(util::numeric_cast<std::size_t>(count));
    auto block = io::block::CFibBlock::NewDataBlock(position_, blockIndex_, std::move(buffer));
    ++blockIndex_;
    position_ += count;
    return block;
}

pool::CPoolPtr<io::block::CFibBlock> seq_fileblocks_reader_t::FinishRead() {
    stream_->FinishRead();
    finished_ = true;
    return {};
}

}  // namespace tarn
