#include "tarn/blocks/seq_fileblocks_writer.h"

#include <exception>
#include <utility>

#include "mirrowen/exc/already_exists_exc.h"
#include "mirrowen/exc/not_impl_exc.h"
#include "mirrowen/exc/regen.h"
#include "tarn/blocks/block_content.h"
#include "tarn/fs_log.h"

namespace tarn {

seq_fileblocks_writer_t::seq_fileblocks_writer_t(std::shared_ptr<file_wstream_t> stream) : stream_(std::move(stream)) {}

seq_fileblocks_writer_t::~seq_fileblocks_writer_t() = default;

std::string seq_fileblocks_writer_t::GetDisplayName() {
    return stream_->GetPath();
}

void seq_fileblocks_writer_t::Write(std::shared_ptr<io::area::area_t> /*area*/) {
    fs_log.tr("seq_fileblocks_writer_t::Write");
    throw exc::CNotImplExc("seq_fileblocks_writer_t", "Write");
}

void seq_fileblocks_writer_t::Write(std::shared_ptr<io::area::IArea> area) {
    blocks::ForEachBlock(*area, [this](pool::CPoolPtr<io::block::CFibBlock> block) { WriteBlock(std::move(block)); });
}

void seq_fileblocks_writer_t::Finish(std::shared_ptr<synch::completion_port_t> port) {
    stream_->Flush();
    stream_->Close(std::move(port));
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): callers hand the block over
std::uint64_t seq_fileblocks_writer_t::WriteBlock(pool::CPoolPtr<io::block::CFibBlock> block) {
    try {
        StoreBlock(*block);
        position_ += block->GetIdentity().size;
        return position_;
    } catch (const exc::CAlreadyExistsExc&) {
        throw;
    } catch (const std::exception&) {
        exc::RegenExc(blocks::kCannotAppend, stream_->GetPath(), position_);
    }
}

void seq_fileblocks_writer_t::StoreBlock(const io::block::CFibBlock& block) {
    const io::block::SBlockIdentity& identity = block.GetIdentity();
    blocks::CheckFollows(identity.offset, position_);
    if (block.IsSparseBlock()) {
        stream_->WriteZeroes(identity.size);
        return;
    }
    blocks::CheckNotPacked(block);
    // No look at the encryption mark: encrypted bytes are kept as they are in a new file.
    const auto content = blocks::ContentOf(block);
    stream_->WriteExc(content.data(), content.size());
}

}  // namespace tarn
