#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <stop_token>
#include <vector>

#include "brannock/transmission/channel_ends.h"
#include "brannock/transmission/frame_payload.h"
#include "brannock/transmission/item_digest.h"
#include "brannock/transmission/stream_budget.h"
#include "brannock/transmission/transmission_cfg.h"
#include "mirrowen/io/area/area_read_dev.h"

namespace brannock::transmission {

/// One block on its way through the stages.
struct block_job_t {
    std::uint64_t index = 0;
    std::uint64_t offset = 0;
    std::uint32_t size = 0;  ///< bytes of the item
    bool encrypted = false;
    io::block::EBufTransformType transform = io::block::EBufTransformType::eNone;
    pool::CPoolPtr<io::block::CContentBuf> content;  ///< empty for zeroes
    pool::CPoolPtr<io::block::CContentBuf> packed;   ///< what travels when `transform` is set
    stream_budget_t::share_t share;

    bool IsZero() const noexcept { return !content && !packed; }
    std::span<const std::byte> GetRaw() const noexcept { return {content->Data(), content->Size()}; }
};

/// Turns a source's areas into single blocks: data of at most the block size, zeroes of at most kMaxZeroRun (of the
/// block size where digests are registered). A block of zero bytes becomes zeroes unless the source knows its holes.
/// Registers digests and adds up the totals. One thread at a time.
class block_source_t {
  public:
    block_source_t(std::shared_ptr<io::area::area_read_dev_t> source, const transmission_cfg_t& cfg,
                   std::vector<digest_target_t> digests, std::stop_token stop);

    /// The next block, or nothing at the end. The share of memory is taken before the source reads.
    std::optional<block_job_t> Next();
    /// What Next has handed out.
    end_record_t GetTotals() const;

  private:
    bool FetchArea();
    bool TakeBlock(block_job_t& job);
    void TakeContent(const io::block::CFibBlock& block, block_job_t& job);
    void TakeZeroes(block_job_t& job);
    void Account(block_job_t& job);

    const std::shared_ptr<io::area::area_read_dev_t> source_;
    const std::uint64_t blockSize_;
    const std::size_t shareSize_;
    const bool skipping_;
    const bool findingZeroes_;
    const std::vector<digest_target_t> digests_;
    const std::uint64_t zeroRun_;
    const std::stop_token stop_;
    const std::shared_ptr<stream_budget_t> budget_;

    std::shared_ptr<io::area::IArea> area_;
    std::uint64_t areaIndex_ = 0;
    stream_budget_t::share_t share_;
    std::uint64_t zeroesAt_ = 0;
    std::uint64_t zeroesLeft_ = 0;
    end_record_t totals_;
    item_digest_t digest_;
};

}  // namespace brannock::transmission
