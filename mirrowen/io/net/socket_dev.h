#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <stop_token>
#include <string>

#include "mirrowen/export.h"
#include "mirrowen/io/io_dev.h"
#include "mirrowen/posix/unique_fd.h"
#include "mirrowen/synch/deadline.h"
#include "mirrowen/synch/mutex.h"

namespace io::net {

/// What ends a wait on a peer.
struct socket_limits_t {
    /// How long not a single byte may move before the peer is given up.
    std::chrono::milliseconds idleTimeout{std::chrono::seconds(120)};
    /// Ends every wait within `util::kWaitSlice`.
    std::stop_token stop;
};

/// A connected stream socket as a channel. It knows no addresses, only the name of its peer for messages.
///
/// One thread may read while another writes. Small writes are gathered in a buffer of 16 KiB; they leave when it is
/// full, at `Flush`, and before a `Read` waits, so a question is on its way before its answer is awaited. Small reads
/// are served from a buffer of the same size that takes what has arrived.
///
/// Errors: `exc::CRuntimeExc` "Connection with [%1] timed out: nothing moved for %2 ms.",
/// "Connection with [%1] timed out: the deadline has passed.", "Connection with [%1] was cancelled.", and
/// `posix::errno_exc_t` "Failed to receive from [%1]", "Failed to send to [%1]". A peer that has closed reads as the
/// end.
class MIRROWEN_API socket_dev_t : public io_dev_t {
  public:
    /// Takes the connected socket over and makes it non-blocking.
    socket_dev_t(posix::unique_fd_t socket, std::string peerName, socket_limits_t limits);
    ~socket_dev_t() override;

    std::size_t Read(void* buffer, std::size_t count) override;
    /// Takes all bytes or throws.
    std::size_t Write(const void* buffer, std::size_t count) override;
    void Flush() override;

    /// One deadline for everything that follows, besides the idle time-out; `Never()` lifts it. Not while another
    /// thread reads or writes.
    void SetDeadline(synch::deadline_t deadline) { deadline_ = deadline; }

    /// Ends both directions: the peer reads the end, a thread that waits here gets an error or the end. Any thread.
    void Shutdown() noexcept;

    const std::string& GetPeerName() const noexcept { return peerName_; }
    const socket_limits_t& GetLimits() const noexcept { return limits_; }

  private:
    std::size_t ReadBuffered(void* buffer, std::size_t count);
    std::size_t Receive(void* buffer, std::size_t count);
    void WaitReady(short events, const synch::deadline_t& idle) const;
    void FlushBuffer() REQUIRES(writeMutex_);
    void FlushUnlessWriting();
    void SendAll(const std::byte* bytes, std::size_t count);

    posix::unique_fd_t socket_;
    const std::string peerName_;
    const socket_limits_t limits_;
    synch::deadline_t deadline_;
    std::unique_ptr<std::byte[]> arrived_;  ///< the reader's own: bytes that came and were not asked for yet
    std::size_t arrivedBegin_ = 0;
    std::size_t arrivedEnd_ = 0;
    synch::mutex_t writeMutex_;
    std::string pending_ GUARDED_BY(writeMutex_);
};

}  // namespace io::net
