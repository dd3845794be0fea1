#include "brannock/transmission/frame_reader.h"

#include <algorithm>
#include <utility>

#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/util/crc32c.h"

namespace brannock::transmission {

namespace {

constexpr std::size_t kPart = std::size_t{64} << 10;

// Room for what a frame of this type carries.
std::uint64_t MaxPayload(EFrameType type, std::uint64_t maxBlock) {
    switch (type) {
        case EFrameType::eData:
            return maxBlock;
        case EFrameType::eEnd:
            return kEndPayloadSize;
        case EFrameType::eAbort:
            return kMaxCauseText;
        case EFrameType::eStatus:
            return kMaxStatusPayload;
        case EFrameType::eZero:
        case EFrameType::eBusy:
        case EFrameType::eCredit:
            break;
    }
    return 0;
}

}  // namespace

frame_reader_t::frame_reader_t(io::io_dev_t& device, io_meter_t& meter, std::uint64_t maxBlock)
    : device_(device), meter_(meter), maxBlock_(maxBlock) {}

const frame_header_t& frame_reader_t::ReadHeader() {
    try {
        meter_.Touch();
        ReadAll(bytes_, true);
        meter_.Rest();
        header_ = DecodeFrameHeader(bytes_);
        CheckLengthExc();
    } catch (...) {
        broken_ = true;
        throw;
    }
    checksum_ = ComputeHeaderChecksum(bytes_);
    left_ = header_.payloadLength;
    if (left_ == 0) {
        FinishFrame();
    }
    return header_;
}

void frame_reader_t::CheckLengthExc() const {
    if (header_.payloadLength > MaxPayload(header_.type, maxBlock_)) {
        throw exc::CRuntimeExc("Broken block stream: a frame of type [%1] has [%2] bytes.",
                               static_cast<std::uint16_t>(header_.type), header_.payloadLength);
    }
}

void frame_reader_t::ReadPayload(std::span<std::byte> out) {
    if (left_ != 0) {
        meter_.BeginBytes(left_);
        ReadPart(out);
        FinishFrame();
    }
}

payload_t frame_reader_t::ReadPayload() {
    payload_t payload;
    meter_.BeginBytes(left_);
    while (left_ != 0) {
        const std::size_t at = payload.size();
        payload.resize(at + std::min(left_, kPart));
        ReadPart(std::span(payload).subspan(at));
        if (left_ == 0) {
            FinishFrame();
        }
    }
    meter_.Rest();
    return payload;
}

void frame_reader_t::SkipPayload() {
    std::array<std::byte, 4096> part;
    meter_.BeginBytes(left_);
    while (left_ != 0) {
        ReadPart(std::span(part).first(std::min(left_, part.size())));
        if (left_ == 0) {
            FinishFrame();
        }
    }
    meter_.Rest();
}

void frame_reader_t::ReadPart(std::span<std::byte> out) {
    try {
        ReadAll(out, false);
    } catch (...) {
        broken_ = true;
        throw;
    }
    checksum_ = util::crc32c(checksum_, out.data(), out.size());
    left_ -= out.size();
}

void frame_reader_t::FinishFrame() {
    meter_.Rest();
    if (checksum_ != GetFrameChecksum(bytes_)) {
        broken_ = true;
        throw exc::CRuntimeExc("Broken block stream: the checksum of a frame is wrong.");
    }
}

void frame_reader_t::ReadAll(std::span<std::byte> out, bool startsFrame) {
    while (!out.empty()) {
        const std::size_t count = device_.Read(out.data(), out.size());
        if (count == 0) {
            throw exc::CRuntimeExc("The far end closed the channel during a transfer.");
        }
        out = out.subspan(count);
        if (std::exchange(startsFrame, false)) {
            meter_.BeginBytes(out.size());
        }
        meter_.Touch();
    }
}

}  // namespace brannock::transmission
