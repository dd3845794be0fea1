#include "brannock/transmission/block_source.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "brannock/transmission/frame.h"
#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/io/area/knows_holes.h"

namespace brannock::transmission {

namespace {

bool IsAllZero(std::span<const std::byte> bytes) {
    return bytes.front() == std::byte{0} && std::memcmp(bytes.data(), bytes.data() + 1, bytes.size() - 1) == 0;
}

digest::block_digest_t DigestOfZeroes(std::size_t size) {
    return digest::ComputeBlockDigest(std::vector<std::byte>(size));
}

void CheckBlockExc(const io::block::CFibBlock& block, std::uint64_t blockSize) {
    const std::uint64_t size = block.GetIdentity().size;
    const io::block::CDataBlock& data = block.GetDataBlock();
    if (data.GetCompression() != io::block::EBufTransformType::eNone) {
        throw exc::CRuntimeExc("The given block is packed.");
    }
    const std::size_t carried = data.GetContentPtr() ? data.GetContent().Size() : 0;
    if (size != carried) {
        throw exc::CRuntimeExc("A block of [%1] bytes carries [%2] bytes.", size, carried);
    }
    if (size > blockSize) {
        throw exc::CRuntimeExc("A block of [%1] bytes is larger than the transfer's [%2].", size, blockSize);
    }
}

}  // namespace

block_source_t::block_source_t(std::shared_ptr<io::area::area_read_dev_t> source, const transmission_cfg_t& cfg,
                               std::vector<digest_target_t> digests, std::stop_token stop)
    : source_(std::move(source)),
      blockSize_(cfg.GetBlockSize()),
      shareSize_(static_cast<std::size_t>(blockSize_) * (cfg.GetCompression() ? 2 : 1)),
      skipping_(cfg.IsBlocksSkippingEnabled()),
      findingZeroes_(!io::area::KnowsHoles(*source_)),
      digests_(std::move(digests)),
      zeroRun_(digests_.empty() ? kMaxZeroRun : blockSize_),
      stop_(std::move(stop)),
      budget_(std::make_shared<stream_budget_t>(pool::byte_budget_t::Process())) {}

std::optional<block_job_t> block_source_t::Next() {
    block_job_t job;
    while (zeroesLeft_ == 0) {
        if (!area_ && !FetchArea()) {
            return std::nullopt;
        }
        if (TakeBlock(job)) {
            Account(job);
            return job;
        }
    }
    TakeZeroes(job);
    Account(job);
    return job;
}

bool block_source_t::FetchArea() {
    share_ = stream_budget_t::Acquire(budget_, shareSize_, stop_);
    do {
        area_ = source_->ReadNext();
    } while (area_ && skipping_ && area_->GetKind() == io::area::EAreaKind::eNothing);
    areaIndex_ = 0;
    if (!area_) {
        share_.reset();
        return false;
    }
    if (area_->GetKind() == io::area::EAreaKind::eSparse && area_->GetBlockCount() == 0) {
        zeroesAt_ = area_->GetOffset();
        zeroesLeft_ = area_->GetSize();
    }
    return true;
}

// Whether `job` has the area's next block. Zero blocks become a run instead, what is gone or empty is passed over.
bool block_source_t::TakeBlock(block_job_t& job) {
    if (areaIndex_ >= area_->GetBlockCount()) {
        area_.reset();
        share_.reset();
        return false;
    }
    const std::uint64_t index = areaIndex_++;
    const pool::CPoolPtr<io::block::CFibBlock> block = area_->GetBlock(index);
    area_->ReleaseBlock(index);
    if (!block || block->GetIdentity().size == 0) {
        return false;
    }
    if (block->IsSparseBlock()) {
        zeroesAt_ = block->GetIdentity().offset;
        zeroesLeft_ = block->GetIdentity().size;
        return false;
    }
    CheckBlockExc(*block, blockSize_);
    TakeContent(*block, job);
    return true;
}

void block_source_t::TakeContent(const io::block::CFibBlock& block, block_job_t& job) {
    const io::block::CDataBlock& data = block.GetDataBlock();
    job.offset = block.GetIdentity().offset;
    job.size = static_cast<std::uint32_t>(block.GetIdentity().size);
    job.encrypted = data.IsEncrypted();
    job.content = data.GetContentPtr();
    job.share = std::move(share_);
    if (findingZeroes_ && !job.encrypted && IsAllZero(job.GetRaw())) {
        job.content.reset();
        job.share.reset();
    }
}

void block_source_t::TakeZeroes(block_job_t& job) {
    share_.reset();
    job.offset = zeroesAt_;
    job.size = static_cast<std::uint32_t>(std::min(zeroesLeft_, zeroRun_));
    zeroesAt_ += job.size;
    zeroesLeft_ -= job.size;
}

void block_source_t::Account(block_job_t& job) {
    job.index = totals_.blocks++;
    totals_.bytes += job.size;
    if (job.IsZero()) {
        digest_.AddZeroes(job.size);
    } else {
        digest_.Add(job.GetRaw());
    }
    if (!digests_.empty()) {
        const auto digest = job.IsZero() ? DigestOfZeroes(job.size) : digest::ComputeBlockDigest(job.GetRaw());
        for (const digest_target_t& target : digests_) {
            target.Register(job.offset, digest);
        }
    }
}

end_record_t block_source_t::GetTotals() const {
    end_record_t totals = totals_;
    totals.digest = digest_.Get();
    return totals;
}

}  // namespace brannock::transmission
