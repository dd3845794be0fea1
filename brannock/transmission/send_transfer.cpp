#include "brannock/transmission/send_transfer.h"

#include <exception>
#include <utility>

#include "mirrowen/exc/runtime_exc.h"

namespace brannock::transmission {

namespace {

using io::block::EBufTransformType;

constexpr std::size_t kReadAhead = 2;

EBufTransformType TransformOf(const transmission_cfg_t& cfg) {
    if (!cfg.GetCompression() || cfg.GetCompression()->IsEmpty()) {
        return EBufTransformType::eNone;
    }
    const auto& transforms = cfg.GetCompression()->GetTransforms();
    if (transforms.size() != 1 || !io::block::IsCompression(transforms.front())) {
        throw exc::CRuntimeExc("Blocks cannot be sent with transform [%1] of [%2].",
                               static_cast<std::uint32_t>(transforms.front()), transforms.size());
    }
    return transforms.front();
}

std::span<const std::byte> BytesOf(const pool::CPoolPtr<io::block::CContentBuf>& buffer) {
    return {buffer->Data(), buffer->Size()};
}

}  // namespace

send_transfer_t::send_transfer_t(std::shared_ptr<io::area::area_read_dev_t> source, const channel_spec_t& channel,
                                 const transmission_cfg_t& cfg, std::vector<digest_target_t> digests,
                                 observers_t observers)
    : source_(std::move(source)),
      observers_(std::move(observers)),
      transform_(TransformOf(cfg)),
      link_(channel, cfg.GetBlockSize()),
      reverse_(link_),
      blocks_(source_, cfg, std::move(digests), link_.state.GetStopToken()),
      read_(link_.state, kReadAhead),
      packed_(link_.state, kReadAhead),
      workers_(*link_.session, link_.state) {}

void send_transfer_t::Run() {
    try {
        link_.watch.Start();
        SendBlocks();
    } catch (...) {
        link_.FailHere();
    }
    End();
    workers_.Join();
    link_.watch.Stop();
    try {
        DeliverReports();
    } catch (...) {
        link_.state.Fail(std::current_exception(), EFault::eChannel);  // gives way to any failure of the transfer
    }
    link_.state.RethrowIfFailed();
}

// The first block goes out before the second is read, so its memory is free again when more is asked for; an item of
// one block is done then.
void send_transfer_t::SendBlocks() {
    auto first = blocks_.Next();
    if (!first) {
        return;
    }
    Pack(*first);
    Send(std::move(*first));
    if (auto second = blocks_.Next()) {
        RunPipeline(std::move(*second));
    }
}

void send_transfer_t::RunPipeline(block_job_t second) {
    workers_.Run([this] { reverse_.ReadToStatus(); });
    reading_ = true;
    workers_.Run([this, first = std::make_shared<block_job_t>(std::move(second))] { ReadAll(std::move(*first)); });
    const bool packs = transform_ != EBufTransformType::eNone;
    if (packs) {
        workers_.Run([this] { PackAll(); });
    }
    stage_queue_t<block_job_t>& ready = packs ? packed_ : read_;
    while (auto job = ready.Pop()) {
        Send(std::move(*job));
    }
}

void send_transfer_t::ReadAll(block_job_t first) {
    std::optional<block_job_t> job(std::move(first));
    while (job && read_.Push(std::move(*job))) {
        job = blocks_.Next();
    }
    read_.Close();
}

void send_transfer_t::PackAll() {
    while (auto job = read_.Pop()) {
        Pack(*job);
        if (!packed_.Push(std::move(*job))) {
            return;
        }
    }
    packed_.Close();
}

// Keeps the packed copy only when it is smaller; encrypted blocks do not shrink.
void send_transfer_t::Pack(block_job_t& job) {
    if (transform_ == EBufTransformType::eNone || job.IsZero() || job.encrypted || job.size < 2) {
        return;
    }
    auto packed = io::block::CContentBuf::Alloc(job.size - 1);
    const std::size_t size = codec_.Pack(transform_, job.GetRaw(), {packed->Data(), packed->Size()});
    if (size != 0) {
        packed->Reduce(size);
        job.packed = std::move(packed);
        job.transform = transform_;
        job.content.reset();
    }
}

void send_transfer_t::Send(block_job_t job) {
    if (!reverse_.WaitForCredit(job.index)) {
        return;
    }
    const frame_header_t header{.type = job.IsZero() ? EFrameType::eZero : EFrameType::eData,
                                .flags = job.encrypted ? kFrameEncrypted : std::uint16_t{0},
                                .rawLength = job.size,
                                .offset = job.offset,
                                .block = job.index,
                                .transform = job.transform};
    std::span<const std::byte> payload;
    if (!job.IsZero()) {
        payload = BytesOf(job.packed ? job.packed : job.content);
    }
    // The first block waits in the device for what comes right behind it, the end or the second block.
    link_.writer.Send(header, payload, job.index == 0 ? frame_writer_t::EThen::eKeep : frame_writer_t::EThen::eFlush);
    observers_.OnBytes(job.size);
}

// Sends END or ABORT and waits for the receiver's STATUS.
void send_transfer_t::End() {
    try {
        if (!link_.state.IsFailed()) {
            reverse_.ExpectStatus();
            link_.writer.Send({.type = EFrameType::eEnd}, EncodeEnd(blocks_.GetTotals()),
                              frame_writer_t::EThen::eClose);
        }
    } catch (...) {
        link_.FailHere();
    }
    if (link_.state.IsFailed()) {
        link_.LimitTheRest();
        link_.writer.TrySendLast(EFrameType::eAbort, EncodeText(TextOf(link_.state.GetError())));
        link_.LimitTheRest();
    }
    if (!reading_) {
        reverse_.ReadToStatus();
    }
}

void send_transfer_t::DeliverReports() {
    auto* const sink = dynamic_cast<IEntryReportSink*>(source_.get());
    const auto& status = reverse_.GetStatus();
    if (sink != nullptr && status && !status->reports.empty()) {
        sink->OnEntryReports(status->reports);
    }
}

}  // namespace brannock::transmission
