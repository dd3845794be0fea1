#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <future>
#include <stop_token>
#include <string>

#include "agent/net/session_threads.h"
#include "brannock/transmission/session.h"
#include "mirrowen/io/net/socket_dev.h"

namespace agent::net {

/// The channel of one session: a socket, the threads that its transfers run on, and the count of its items. The
/// transmission engine finds the session by asking the channel device for `ISession`.
class session_channel_t final : public io::net::socket_dev_t, public brannock::transmission::ISession {
  public:
    /// `minimumRate`: bytes a second that the inside of a frame must make; 0 for no limit. `threadScope` is opened on
    /// each of the session's threads.
    session_channel_t(posix::unique_fd_t socket, std::string peerName, io::net::socket_limits_t limits,
                      std::uint64_t minimumRate, thread_scope_t threadScope = {});
    ~session_channel_t() override;

    void Cancel() noexcept override;

    std::future<void> Run(std::function<void()> work) override;
    std::stop_token GetStopToken() const override;
    std::uint64_t NextItemNumber() override;
    std::chrono::milliseconds GetIdleTimeout() const override;
    std::uint64_t GetMinimumRate() const override;

  private:
    const std::uint64_t minimumRate_;
    std::atomic<std::uint64_t> items_{0};
    session_threads_t threads_;
};

}  // namespace agent::net
