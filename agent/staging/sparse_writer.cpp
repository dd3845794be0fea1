#include "agent/staging/sparse_writer.h"

#include <exception>
#include <limits>
#include <utility>

#include "mirrowen/exc/regen.h"
#include "mirrowen/posix/errno_exc.h"
#include "tarn/blocks/block_content.h"

namespace agent {

namespace {

constexpr std::uint64_t kMaxSize = std::numeric_limits<std::int64_t>::max();

}  // namespace

sparse_writer_t::sparse_writer_t(std::shared_ptr<posix::posix_file_t> file, std::uint64_t startOffset)
    : file_(std::move(file)), position_(startOffset) {}

void sparse_writer_t::Write(io::area::IArea& area) {
    if (area.GetKind() == io::area::EAreaKind::eSparse && area.GetBlockCount() == 0) {
        Append(area.GetOffset(), [&] { Skip(area.GetSize()); });
        return;
    }
    tarn::blocks::ForEachBlock(area, [this](const pool::CPoolPtr<io::block::CFibBlock>& block) {
        Append(block->GetIdentity().offset, [&] { Store(*block); });
    });
}

template <class Action>
void sparse_writer_t::Append(std::uint64_t offset, const Action& action) {
    try {
        tarn::blocks::CheckFollows(offset, position_);
        action();
    } catch (const std::exception&) {
        exc::RegenExc(tarn::blocks::kCannotAppend, file_->GetPath(), position_);
    }
}

void sparse_writer_t::Skip(std::uint64_t count) {
    if (position_ > kMaxSize || count > kMaxSize - position_) {
        throw posix::errno_exc_t("Failed to write to file [%1]", file_->GetPath(), EFBIG);
    }
    position_ += count;
    behind_ = true;
}

void sparse_writer_t::Store(const io::block::CFibBlock& block) {
    if (block.IsSparseBlock()) {
        Skip(block.GetIdentity().size);
        return;
    }
    tarn::blocks::CheckNotPacked(block);
    // No look at the encryption mark: encrypted bytes are kept as they are in a new file.
    const auto content = tarn::blocks::ContentOf(block);
    if (std::exchange(behind_, false)) {
        file_->SeekFromBegin(position_);
    }
    file_->Write(content.data(), content.size());
    position_ += content.size();
}

void sparse_writer_t::Finish() {
    file_->SetSize(position_);
}

}  // namespace agent
