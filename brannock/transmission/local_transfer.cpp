#include "brannock/transmission/local_transfer.h"

#include <utility>

#include "brannock/transmission/private_session.h"
#include "brannock/transmission/stage_queue.h"
#include "brannock/transmission/worker_group.h"

namespace brannock::transmission {

namespace {

constexpr std::size_t kReadAhead = 2;

// Writes `first` and what follows it while the source is read on another thread.
void Overlap(block_source_t& blocks, block_job_t first, block_sink_t& sink, transfer_state_t& state) {
    const std::shared_ptr<ISession> session = GetSessionOf(nullptr);
    stage_queue_t<block_job_t> queue(state, kReadAhead);
    worker_group_t workers(*session, state);
    workers.Run([&] {
        while (auto job = blocks.Next()) {
            if (!queue.Push(std::move(*job))) {
                return;
            }
        }
        queue.Close();
    });
    try {
        sink.Write(std::move(first));
        while (auto job = queue.Pop()) {
            sink.Write(std::move(*job));
        }
    } catch (...) {
        state.Fail(std::current_exception(), EFault::eOwn);
    }
    workers.Join();
    state.RethrowIfFailed();
}

}  // namespace

void RunLocalTransfer(const std::shared_ptr<io::area::area_read_dev_t>& source,
                      const std::shared_ptr<io::area::area_write_dev_t>& destination, const transmission_cfg_t& cfg,
                      std::vector<digest_target_t> digests, const observers_t& observers) {
    transfer_state_t state;
    block_sink_t sink(destination, observers);
    block_source_t blocks(source, cfg, std::move(digests), state.GetStopToken());
    if (auto first = blocks.Next()) {
        sink.Write(std::move(*first));  // its memory is free again before more is asked for
        if (auto second = blocks.Next()) {
            Overlap(blocks, std::move(*second), sink, state);
        }
    }
    sink.CheckTotalsExc(blocks.GetTotals());
    sink.Finish();
}

}  // namespace brannock::transmission
