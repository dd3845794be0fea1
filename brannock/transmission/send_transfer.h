#pragma once

#include <memory>
#include <vector>

#include "brannock/transmission/block_codec.h"
#include "brannock/transmission/block_sink.h"
#include "brannock/transmission/block_source.h"
#include "brannock/transmission/reverse_side.h"
#include "brannock/transmission/stage_queue.h"
#include "brannock/transmission/worker_group.h"

namespace brannock::transmission {

/// One item on its way out: read | pack | send, and the receiver's answers read beside. The source is read and the
/// blocks are packed on threads of the session; the transfer's own thread sends and reports progress.
class send_transfer_t {
  public:
    send_transfer_t(std::shared_ptr<io::area::area_read_dev_t> source, const channel_spec_t& channel,
                    const transmission_cfg_t& cfg, std::vector<digest_target_t> digests, observers_t observers);

    /// Returns when the receiver has said that all is well; throws what went wrong on either side.
    void Run();

  private:
    void SendBlocks();
    void RunPipeline(block_job_t second);
    void ReadAll(block_job_t first);
    void PackAll();
    void Pack(block_job_t& job);
    void Send(block_job_t job);
    void End();
    void DeliverReports();

    const std::shared_ptr<io::area::area_read_dev_t> source_;
    const observers_t observers_;
    const io::block::EBufTransformType transform_;
    channel_link_t link_;
    reverse_side_t reverse_;
    block_codec_t codec_;
    block_source_t blocks_;
    stage_queue_t<block_job_t> read_;
    stage_queue_t<block_job_t> packed_;
    bool reading_ = false;  ///< the receiver's answers are read by a worker
    worker_group_t workers_;
};

}  // namespace brannock::transmission
