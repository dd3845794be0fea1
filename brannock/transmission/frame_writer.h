#pragma once

#include <atomic>
#include <cstddef>
#include <exception>
#include <span>

#include "brannock/transmission/frame.h"
#include "brannock/transmission/frame_payload.h"
#include "brannock/transmission/transfer_watch.h"
#include "mirrowen/io/io_dev.h"
#include "mirrowen/synch/mutex.h"

namespace brannock::transmission {

/// Writes one item's frames to the channel. Any thread of the transfer may send; a frame goes out whole. A failure of
/// the device ends the writing for good and is thrown, also to whoever sends after it.
class frame_writer_t {
  public:
    /// What is done once a frame was written: nothing more, the device is flushed, or flushed and never used again.
    enum class EThen { eKeep, eFlush, eClose };

    frame_writer_t(io::io_dev_t& device, io_meter_t& meter, std::uint64_t item);

    /// Sends `header` as a frame of the item. After eClose it throws `exc::CRuntimeExc` "The channel of the transfer
    /// is closed.".
    void Send(frame_header_t header, std::span<const std::byte> payload, EThen then);
    /// Sends the item's last frame if that is still possible.
    void TrySendLast(EFrameType type, const payload_t& payload) noexcept;

    bool IsBroken() const noexcept { return broken_; }
    /// This end has been silent for the interval.
    bool IsBeatDue() const;
    /// Sends BUSY when it is due.
    void Beat() noexcept;

  private:
    void SendLocked(frame_header_t header, std::span<const std::byte> payload, EThen then) REQUIRES(mutex_);
    void WriteAll(std::span<const std::byte> bytes) REQUIRES(mutex_);

    io::io_dev_t& device_;
    io_meter_t& meter_;
    const std::uint64_t item_;
    std::atomic<util::IClock::steady_point_t> lastSent_;
    std::atomic<bool> broken_ = false;
    std::atomic<bool> closed_ = false;
    synch::mutex_t mutex_;
    std::exception_ptr failure_ GUARDED_BY(mutex_);  ///< why it is broken
};

}  // namespace brannock::transmission
