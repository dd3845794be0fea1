#include "agent/net/session_channel.h"

#include <utility>

namespace agent::net {

session_channel_t::session_channel_t(posix::unique_fd_t socket, std::string peerName, io::net::socket_limits_t limits,
                                     std::uint64_t minimumRate, thread_scope_t threadScope)
    : io::net::socket_dev_t(std::move(socket), std::move(peerName), std::move(limits)),
      minimumRate_(minimumRate),
      threads_(std::move(threadScope)) {}

session_channel_t::~session_channel_t() {
    // A thread that still waits for the peer ends now, so that the threads can be joined.
    Shutdown();
}

void session_channel_t::Cancel() noexcept {
    Shutdown();
}

std::future<void> session_channel_t::Run(std::function<void()> work) {
    return threads_.Run(std::move(work));
}

std::stop_token session_channel_t::GetStopToken() const {
    return GetLimits().stop;
}

std::uint64_t session_channel_t::NextItemNumber() {
    return items_.fetch_add(1, std::memory_order_relaxed);
}

std::chrono::milliseconds session_channel_t::GetIdleTimeout() const {
    return GetLimits().idleTimeout;
}

std::uint64_t session_channel_t::GetMinimumRate() const {
    return minimumRate_;
}

}  // namespace agent::net
