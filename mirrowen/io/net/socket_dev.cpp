#include "mirrowen/io/net/socket_dev.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/posix/errno_exc.h"

namespace io::net {

namespace {

constexpr std::size_t kGatherLimit = std::size_t{16} << 10;

bool would_block(int error) {
    return error == EAGAIN || error == EWOULDBLOCK;
}

void make_non_blocking(int fd, const std::string& peer) {
    const int flags = ::fcntl(fd, F_GETFL);
    if (flags < 0 || ::fcntl(fd, F_SETFL, flags | O_NONBLOCK) != 0) {
        throw posix::errno_exc_t("Failed to set up connection with [%1]", peer, errno);
    }
}

}  // namespace

socket_dev_t::socket_dev_t(posix::unique_fd_t socket, std::string peerName, socket_limits_t limits)
    : socket_(std::move(socket)),
      peerName_(std::move(peerName)),
      limits_(std::move(limits)),
      arrived_(std::make_unique<std::byte[]>(kGatherLimit)) {
    make_non_blocking(socket_.get(), peerName_);
}

socket_dev_t::~socket_dev_t() = default;

std::size_t socket_dev_t::Read(void* buffer, std::size_t count) {
    if (count == 0) {
        return 0;
    }
    if (arrivedBegin_ != arrivedEnd_) {
        return ReadBuffered(buffer, count);
    }
    FlushUnlessWriting();
    if (count >= kGatherLimit) {
        return Receive(buffer, count);
    }
    arrivedBegin_ = 0;
    arrivedEnd_ = 0;  // stays so when Receive throws
    arrivedEnd_ = Receive(arrived_.get(), kGatherLimit);
    return ReadBuffered(buffer, count);
}

std::size_t socket_dev_t::ReadBuffered(void* buffer, std::size_t count) {
    const std::size_t part = std::min(count, arrivedEnd_ - arrivedBegin_);
    std::memcpy(buffer, arrived_.get() + arrivedBegin_, part);
    arrivedBegin_ += part;
    return part;
}

std::size_t socket_dev_t::Receive(void* buffer, std::size_t count) {
    const synch::deadline_t idle = synch::deadline_t::After(limits_.idleTimeout);
    for (;;) {
        const ssize_t got = ::recv(socket_.get(), buffer, count, 0);
        if (got >= 0) {
            return static_cast<std::size_t>(got);
        }
        if (errno != EINTR && !would_block(errno)) {
            throw posix::errno_exc_t("Failed to receive from [%1]", peerName_, errno);
        }
        WaitReady(POLLIN, idle);
    }
}

std::size_t socket_dev_t::Write(const void* buffer, std::size_t count) {
    const synch::lock_t lock(writeMutex_);
    if (pending_.size() + count < kGatherLimit) {
        pending_.append(static_cast<const char*>(buffer), count);
        return count;
    }
    FlushBuffer();
    SendAll(static_cast<const std::byte*>(buffer), count);
    return count;
}

void socket_dev_t::Flush() {
    const synch::lock_t lock(writeMutex_);
    FlushBuffer();
}

// A writer that holds the lock is on its way to the socket itself and flushes what it wrote. The analysis does not
// follow a lock that may or may not be held.
void socket_dev_t::FlushUnlessWriting() NO_THREAD_SAFETY_ANALYSIS {
    const boost::unique_lock<boost::mutex> lock(writeMutex_, boost::try_to_lock);
    if (lock.owns_lock()) {
        FlushBuffer();
    }
}

void socket_dev_t::FlushBuffer() {
    // Bytes that failed to leave are dropped: the connection is over, and a second attempt would send a torn stream.
    const std::string bytes = std::exchange(pending_, {});
    SendAll(reinterpret_cast<const std::byte*>(bytes.data()), bytes.size());
}

void socket_dev_t::SendAll(const std::byte* bytes, std::size_t count) {
    synch::deadline_t idle = synch::deadline_t::After(limits_.idleTimeout);
    while (count != 0) {
        const ssize_t sent = ::send(socket_.get(), bytes, count, MSG_NOSIGNAL);
        if (sent > 0) {
            bytes += sent;
            count -= static_cast<std::size_t>(sent);
            idle = synch::deadline_t::After(limits_.idleTimeout);
            continue;
        }
        if (sent < 0 && errno != EINTR && !would_block(errno)) {
            throw posix::errno_exc_t("Failed to send to [%1]", peerName_, errno);
        }
        WaitReady(POLLOUT, idle);
    }
}

void socket_dev_t::WaitReady(short events, const synch::deadline_t& idle) const {
    for (;;) {
        if (limits_.stop.stop_requested()) {
            throw exc::CRuntimeExc("Connection with [%1] was cancelled.", peerName_);
        }
        pollfd waiting{socket_.get(), events, 0};
        const auto slice = idle.Earlier(deadline_).NextSlice();
        const int ready = ::poll(&waiting, 1, static_cast<int>(slice.count()));
        if (ready > 0) {
            return;
        }
        if (ready < 0 && errno != EINTR) {
            throw posix::errno_exc_t("Failed to wait for [%1]", peerName_, errno);
        }
        if (deadline_.IsExpired()) {
            throw exc::CRuntimeExc("Connection with [%1] timed out: the deadline has passed.", peerName_);
        }
        if (idle.IsExpired()) {
            throw exc::CRuntimeExc("Connection with [%1] timed out: nothing moved for %2 ms.", peerName_,
                                   limits_.idleTimeout.count());
        }
    }
}

void socket_dev_t::Shutdown() noexcept {
    ::shutdown(socket_.get(), SHUT_RDWR);
}

}  // namespace io::net
