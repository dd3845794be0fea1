#include "tarn/blocks/rnd_fileblocks_writer.h"

#include <exception>
#include <utility>

#include "mirrowen/exc/already_exists_exc.h"
#include "mirrowen/exc/not_impl_exc.h"
#include "mirrowen/exc/regen.h"
#include "mirrowen/exc/runtime_exc.h"
#include "tarn/blocks/block_content.h"
#include "tarn/fs_log.h"

namespace tarn {

rnd_fileblocks_writer_t::rnd_fileblocks_writer_t(std::shared_ptr<file_wstream_t> stream) : stream_(std::move(stream)) {}

rnd_fileblocks_writer_t::~rnd_fileblocks_writer_t() = default;

std::string rnd_fileblocks_writer_t::GetDisplayName() {
    return stream_->GetPath();
}

void rnd_fileblocks_writer_t::Write(std::shared_ptr<io::area::area_t> /*area*/) {
    fs_log.tr("rnd_fileblocks_writer_t::Write");
    throw exc::CNotImplExc("rnd_fileblocks_writer_t", "Write");
}

void rnd_fileblocks_writer_t::Write(std::shared_ptr<io::area::IArea> area) {
    const io::area::EAreaKind kind = area->GetKind();
    if (kind == io::area::EAreaKind::eNothing) {
        return;
    }
    stream_->SeekTo(area->GetOffset());
    if (kind == io::area::EAreaKind::eSparse) {
        stream_->WriteZeroes(area->GetSize());
        return;
    }
    blocks::ForEachBlock(*area, [this](pool::CPoolPtr<io::block::CFibBlock> block) { WriteBlock(std::move(block)); });
}

void rnd_fileblocks_writer_t::Finish(std::shared_ptr<synch::completion_port_t> port) {
    stream_->Flush();
    stream_->Close(std::move(port));
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): callers hand the block over
std::uint64_t rnd_fileblocks_writer_t::WriteBlock(pool::CPoolPtr<io::block::CFibBlock> block) {
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

void rnd_fileblocks_writer_t::StoreBlock(const io::block::CFibBlock& block) {
    stream_->SeekTo(block.GetIdentity().offset);
    if (block.IsSparseBlock()) {
        stream_->WriteZeroes(block.GetIdentity().size);
        return;
    }
    blocks::CheckNotPacked(block);
    if (block.GetDataBlock().IsEncrypted()) {
        throw exc::CRuntimeExc("The source data is encrypted.");
    }
    const auto content = blocks::ContentOf(block);
    stream_->WriteExc(content.data(), content.size());
}

}  // namespace tarn
