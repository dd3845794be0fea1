#include "brannock/transmission/recv_transfer.h"

#include <utility>

namespace brannock::transmission {

namespace {

constexpr std::size_t kWriteAhead = 2;

}  // namespace

recv_transfer_t::recv_transfer_t(const channel_spec_t& channel, std::shared_ptr<io::area::area_write_dev_t> destination,
                                 const transmission_cfg_t& cfg, observers_t observers)
    : link_(channel, cfg.GetBlockSize()),
      forward_(link_, cfg),
      sink_(std::move(destination), std::move(observers)),
      received_(link_.state, link_.window),
      ready_(link_.state, kWriteAhead),
      workers_(*link_.session, link_.state) {}

void recv_transfer_t::Run() {
    try {
        link_.watch.Start();
        ReceiveBlocks();
        if (!link_.state.IsFailed()) {
            sink_.CheckTotalsExc(forward_.GetEnd());
            sink_.Finish();
            link_.writer.Send({.type = EFrameType::eStatus}, EncodeStatus({EItemResult::eOk, {}, sink_.TakeReports()}),
                              frame_writer_t::EThen::eClose);
        }
    } catch (...) {
        link_.FailHere();
    }
    if (link_.state.IsFailed()) {
        Settle();
    }
    link_.watch.Stop();
    link_.state.RethrowIfFailed();
}

// The first block is written before the second is waited for: an item of one block is done then, and a window of one
// block moves on.
void recv_transfer_t::ReceiveBlocks() {
    auto first = forward_.Next();
    if (!first) {
        return;
    }
    Unpack(*first);
    Write(std::move(*first));
    if (auto second = forward_.Next()) {
        RunPipeline(std::move(*second));
    }
}

void recv_transfer_t::RunPipeline(block_job_t second) {
    workers_.Run([this, first = std::make_shared<block_job_t>(std::move(second))] { ReceiveAll(std::move(*first)); });
    receiving_ = true;
    workers_.Run([this] { UnpackAll(); });
    while (auto job = ready_.Pop()) {
        Write(std::move(*job));
    }
}

void recv_transfer_t::ReceiveAll(block_job_t first) {
    try {
        std::optional<block_job_t> job(std::move(first));
        while (job && received_.Push(std::move(*job))) {
            job = forward_.Next();
        }
        received_.Close();
    } catch (...) {
        link_.FailHere();
    }
    if (link_.state.IsFailed()) {
        forward_.Drain();
    }
}

void recv_transfer_t::UnpackAll() {
    while (auto job = received_.Pop()) {
        Unpack(*job);
        if (!ready_.Push(std::move(*job))) {
            return;
        }
    }
    ready_.Close();
}

void recv_transfer_t::Unpack(block_job_t& job) {
    if (job.packed) {
        auto raw = io::block::CContentBuf::Alloc(job.size);
        codec_.Unpack(job.transform, {job.packed->Data(), job.packed->Size()}, {raw->Data(), raw->Size()});
        job.content = std::move(raw);
        job.packed.reset();
        job.transform = io::block::EBufTransformType::eNone;
    }
}

void recv_transfer_t::Write(block_job_t job) {
    const std::uint64_t written = job.index + 1;
    sink_.Write(std::move(job));
    forward_.SetWritten(written);
    link_.writer.Send({.type = EFrameType::eCredit, .block = written + link_.window}, {},
                      frame_writer_t::EThen::eFlush);
}

// Tells the sender and reads on to the end of its frames, so that the dialogue can go on behind them.
void recv_transfer_t::Settle() {
    link_.LimitTheRest();
    status_record_t status = StatusOf(link_.state.GetError());
    status.reports = sink_.TakeReports();
    link_.writer.TrySendLast(EFrameType::eStatus, EncodeStatus(status));
    link_.LimitTheRest();
    if (!receiving_) {
        forward_.Drain();
    }
    workers_.Join();
}

}  // namespace brannock::transmission
