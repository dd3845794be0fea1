#pragma once

#include <memory>

#include "brannock/transmission/block_codec.h"
#include "brannock/transmission/block_sink.h"
#include "brannock/transmission/forward_side.h"
#include "brannock/transmission/stage_queue.h"
#include "brannock/transmission/worker_group.h"

namespace brannock::transmission {

/// One item on its way in: receive and check | unpack | write in order. Frames are received and unpacked on threads of
/// the session; the transfer's own thread writes.
class recv_transfer_t {
  public:
    recv_transfer_t(const channel_spec_t& channel, std::shared_ptr<io::area::area_write_dev_t> destination,
                    const transmission_cfg_t& cfg, observers_t observers);

    /// Returns when the destination is finished and the sender knows; throws what went wrong on either side.
    void Run();

  private:
    void ReceiveBlocks();
    void RunPipeline(block_job_t second);
    void ReceiveAll(block_job_t first);
    void UnpackAll();
    void Unpack(block_job_t& job);
    void Write(block_job_t job);
    void Settle();

    channel_link_t link_;
    forward_side_t forward_;
    block_codec_t codec_;
    block_sink_t sink_;
    stage_queue_t<block_job_t> received_;
    stage_queue_t<block_job_t> ready_;
    bool receiving_ = false;  ///< the sender's frames are read by a worker
    worker_group_t workers_;
};

}  // namespace brannock::transmission
