#include "brannock/transmission/forward_side.h"

#include <algorithm>
#include <limits>

#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/logging/log_section.h"
#include "mirrowen/util/str_format.h"

namespace brannock::transmission {

namespace {

using io::block::EBufTransformType;

constinit logging::log_section_t transfer_log("transfer");

// No frame of the item follows it.
bool IsLast(EFrameType type) noexcept {
    return type == EFrameType::eEnd || type == EFrameType::eAbort;
}

[[noreturn]] void Refuse(const std::string& reason) {
    throw exc::CRuntimeExc("Broken block stream: %1.", reason);
}

}  // namespace

forward_side_t::forward_side_t(channel_link_t& link, const transmission_cfg_t& cfg)
    : link_(link),
      blockSize_(cfg.GetBlockSize()),
      accepted_(cfg.GetCompression()),
      budget_(std::make_shared<stream_budget_t>(pool::byte_budget_t::Process())) {}

std::optional<block_job_t> forward_side_t::Next() {
    while (!ended_) {
        block_job_t job;
        if (TakeFrame(job)) {
            return job;
        }
    }
    return std::nullopt;
}

// Whether the frame was a block.
bool forward_side_t::TakeFrame(block_job_t& job) {
    const frame_header_t header = link_.reader.ReadHeader();
    ended_ = IsLast(header.type);
    if (header.item != link_.item) {
        Refuse(util::str_format("a frame of item [%1] came during item [%2]", header.item, link_.item));
    }
    switch (header.type) {
        case EFrameType::eData:
        case EFrameType::eZero:
            TakeBlock(header, job);
            return true;
        case EFrameType::eBusy:
            return false;
        case EFrameType::eEnd:
            end_ = DecodeEnd(link_.reader.ReadPayload());
            return false;
        case EFrameType::eAbort: {
            const std::string text = DecodeText(link_.reader.ReadPayload());
            link_.state.Fail(std::make_exception_ptr(exc::CRuntimeExc(text)), EFault::eRemote);
            throw exc::CRuntimeExc(text);
        }
        default:
            Refuse(
                util::str_format("a frame of type [%1] came from the sender", static_cast<std::uint16_t>(header.type)));
    }
}

void forward_side_t::TakeBlock(const frame_header_t& header, block_job_t& job) {
    CheckBlockExc(header);
    job.index = next_++;
    job.offset = header.offset;
    job.size = header.rawLength;
    job.encrypted = header.flags == kFrameEncrypted;
    job.transform = header.transform;
    if (header.type == EFrameType::eZero) {
        return;
    }
    const bool packed = header.transform != EBufTransformType::eNone;
    job.share = stream_budget_t::Acquire(budget_, header.payloadLength + (packed ? header.rawLength : 0),
                                         link_.state.GetStopToken());
    auto buffer = io::block::CContentBuf::Alloc(header.payloadLength);
    link_.reader.ReadPayload(std::span(buffer->Data(), buffer->Size()));
    (packed ? job.packed : job.content) = std::move(buffer);
}

void forward_side_t::CheckBlockExc(const frame_header_t& header) const {
    if (header.block != next_) {
        Refuse(util::str_format("block [%1] came instead of [%2]", header.block, next_));
    }
    if (header.block - written_.load() >= link_.window) {
        Refuse(util::str_format("block [%1] is beyond the window", header.block));
    }
    if (header.rawLength == 0 || header.rawLength > (header.type == EFrameType::eZero ? kMaxZeroRun : blockSize_)) {
        Refuse(util::str_format("a block has [%1] bytes", header.rawLength));
    }
    if (header.offset > std::numeric_limits<std::uint64_t>::max() - header.rawLength) {
        Refuse(util::str_format("a block stands at [%1]", header.offset));
    }
    CheckContentExc(header);
}

void forward_side_t::CheckContentExc(const frame_header_t& header) const {
    if ((header.flags & ~kFrameEncrypted) != 0) {
        Refuse(util::str_format("unknown flags [%1]", header.flags));
    }
    if (header.transform == EBufTransformType::eNone) {
        if (header.type == EFrameType::eData && header.payloadLength != header.rawLength) {
            Refuse(util::str_format("a block of [%1] bytes carries [%2]", header.rawLength, header.payloadLength));
        }
        return;
    }
    if (!io::block::IsCompression(header.transform)) {
        Refuse(util::str_format("unknown block transform [%1]", static_cast<std::uint32_t>(header.transform)));
    }
    if (!accepted_ || (!accepted_->IsEmpty() && std::ranges::find(accepted_->GetTransforms(), header.transform) ==
                                                    accepted_->GetTransforms().end())) {
        Refuse(util::str_format("block transform [%1] was not agreed upon",
                                io::block::str_from_buftransformtype(header.transform)));
    }
    if (header.type != EFrameType::eData || header.payloadLength == 0 || header.payloadLength >= header.rawLength) {
        Refuse(util::str_format("a packed block of [%1] bytes carries [%2]", header.rawLength, header.payloadLength));
    }
}

void forward_side_t::Drain() noexcept {
    try {
        while (!ended_ && !link_.reader.IsBroken()) {
            link_.reader.SkipPayload();
            ended_ = IsLast(link_.reader.ReadHeader().type);
        }
        if (!link_.reader.IsBroken()) {
            link_.reader.SkipPayload();
        }
    } catch (const std::exception& error) {
        transfer_log.tr("The end of a failed item was not found: %1", error.what());
    }
}

}  // namespace brannock::transmission
