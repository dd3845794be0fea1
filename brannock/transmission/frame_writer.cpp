#include "brannock/transmission/frame_writer.h"

#include <algorithm>

#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/logging/log_section.h"

namespace brannock::transmission {

namespace {

constinit logging::log_section_t transfer_log("transfer");

constexpr std::size_t kChunk = std::size_t{256} << 10;  // how often a long frame shows that it moves

}  // namespace

frame_writer_t::frame_writer_t(io::io_dev_t& device, io_meter_t& meter, std::uint64_t item)
    : device_(device), meter_(meter), item_(item), lastSent_(util::clock().SteadyNow()) {}

void frame_writer_t::Send(frame_header_t header, std::span<const std::byte> payload, EThen then) {
    const synch::lock_t lock(mutex_);
    SendLocked(header, payload, then);
}

void frame_writer_t::TrySendLast(EFrameType type, const payload_t& payload) noexcept {
    try {
        const synch::lock_t lock(mutex_);
        if (!broken_ && !closed_) {
            SendLocked({.type = type}, payload, EThen::eClose);
        }
    } catch (const std::exception& error) {
        transfer_log.tr("The end of a failed transfer was not sent: %1", error.what());
    }
}

bool frame_writer_t::IsBeatDue() const {
    return !broken_ && !closed_ && util::clock().SteadyNow() - lastSent_.load() >= transfer_watch_t::kBusyInterval;
}

void frame_writer_t::Beat() noexcept {
    try {
        const synch::lock_t lock(mutex_);
        if (IsBeatDue()) {
            SendLocked({.type = EFrameType::eBusy}, {}, EThen::eFlush);
        }
    } catch (const std::exception& error) {
        transfer_log.tr("A sign of life was not sent: %1", error.what());  // the next frame will throw
    }
}

void frame_writer_t::SendLocked(frame_header_t header, std::span<const std::byte> payload, EThen then) {
    if (failure_) {
        std::rethrow_exception(failure_);  // a sign of life may have met it first, and told nobody
    }
    if (closed_) {
        throw exc::CRuntimeExc("The channel of the transfer is closed.");
    }
    lastSent_ = util::clock().SteadyNow();
    header.item = item_;
    const frame_bytes_t bytes = EncodeFrameHeader(header, payload);
    meter_.BeginBytes(bytes.size() + payload.size());
    try {
        WriteAll(bytes);
        WriteAll(payload);
        if (then != EThen::eKeep) {
            device_.Flush();
        }
    } catch (...) {
        failure_ = std::current_exception();
        broken_ = true;
        meter_.Rest();
        throw;
    }
    meter_.Rest();
    closed_ = then == EThen::eClose;
}

void frame_writer_t::WriteAll(std::span<const std::byte> bytes) {
    while (!bytes.empty()) {
        const std::size_t part = std::min(bytes.size(), kChunk);
        const std::size_t written = device_.Write(bytes.data(), part);
        if (written != part) {
            throw exc::CRuntimeExc(
                "Failed to write a frame to the channel: written less bytes (%1) than expected (%2).", written, part);
        }
        meter_.Touch();
        bytes = bytes.subspan(part);
    }
}

}  // namespace brannock::transmission
