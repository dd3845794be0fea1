#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>

#include "brannock/transmission/frame.h"
#include "brannock/transmission/frame_payload.h"
#include "brannock/transmission/transfer_watch.h"
#include "mirrowen/io/io_dev.h"

namespace brannock::transmission {

/// Reads frames from the channel, exactly their bytes. A header comes first; its payload is read or skipped before the
/// next. Errors of the device and of the framing leave the reader broken: where the next frame starts is unknown.
/// One thread at a time, except for IsBroken.
class frame_reader_t {
  public:
    /// `maxBlock`: the longest payload of a DATA frame.
    frame_reader_t(io::io_dev_t& device, io_meter_t& meter, std::uint64_t maxBlock);

    /// Waits for the next frame. Throws `exc::CRuntimeExc` "Broken block stream: %1.", among others for a payload that
    /// is longer than its type allows, and "The far end closed the channel during a transfer.".
    const frame_header_t& ReadHeader();
    const frame_header_t& GetHeader() const noexcept { return header_; }

    /// Reads the payload, which has `header.payloadLength` bytes, and checks the frame's checksum.
    void ReadPayload(std::span<std::byte> out);
    /// The payload of a frame that is no block; memory grows as the bytes arrive.
    payload_t ReadPayload();
    /// Reads past what is left of the frame, if anything is.
    void SkipPayload();

    bool IsBroken() const noexcept { return broken_; }

  private:
    void CheckLengthExc() const;
    void ReadPart(std::span<std::byte> out);
    void FinishFrame();
    void ReadAll(std::span<std::byte> out, bool startsFrame);

    io::io_dev_t& device_;
    io_meter_t& meter_;
    const std::uint64_t maxBlock_;
    frame_bytes_t bytes_{};
    frame_header_t header_;
    std::size_t left_ = 0;  ///< bytes of the payload that are still in the channel
    std::uint32_t checksum_ = 0;
    std::atomic<bool> broken_ = false;
};

}  // namespace brannock::transmission
