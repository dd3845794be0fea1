#pragma once

#include <atomic>
#include <cstdint>
#include <optional>

#include "brannock/transmission/block_source.h"
#include "brannock/transmission/channel_link.h"

namespace brannock::transmission {

/// What the sender sends: blocks in order, then the end. One thread at a time, except for SetWritten.
class forward_side_t {
  public:
    forward_side_t(channel_link_t& link, const transmission_cfg_t& cfg);

    /// The next block as it travelled, or nothing at the item's end. Checks everything but the packed content. Throws
    /// `exc::CRuntimeExc` "Broken block stream: %1." and the text of an ABORT.
    std::optional<block_job_t> Next();
    /// The totals, once Next has returned nothing.
    const end_record_t& GetEnd() const noexcept { return end_; }

    /// Blocks below `count` are written, so the window moves.
    void SetWritten(std::uint64_t count) noexcept { written_ = count; }

    /// Reads on to the end of the item's frames; nothing to do when that was reached or cannot be found any more.
    void Drain() noexcept;

  private:
    bool TakeFrame(block_job_t& job);
    void TakeBlock(const frame_header_t& header, block_job_t& job);
    void CheckBlockExc(const frame_header_t& header) const;
    void CheckContentExc(const frame_header_t& header) const;

    channel_link_t& link_;
    const std::uint64_t blockSize_;
    const std::shared_ptr<io::block::buf_transforms_history_t> accepted_;
    const std::shared_ptr<stream_budget_t> budget_;
    std::atomic<std::uint64_t> written_ = 0;
    std::uint64_t next_ = 0;
    end_record_t end_;
    bool ended_ = false;
};

}  // namespace brannock::transmission
