#pragma once

#include <atomic>
#include <stop_token>
#include <thread>

namespace cli {

/// Turns SIGINT and SIGTERM into a stop request for as long as it lives. Made on the main thread before other threads,
/// which inherit the blocked signals. A second signal ends the process at once.
class interrupt_t {
  public:
    interrupt_t();
    ~interrupt_t();
    interrupt_t(const interrupt_t&) = delete;
    interrupt_t& operator=(const interrupt_t&) = delete;

    std::stop_token GetToken() const { return source_.get_token(); }
    /// The signal that came, or 0.
    int GetSignal() const noexcept { return signal_.load(); }

  private:
    void Watch(const std::stop_token& stop);

    std::stop_source source_;
    std::atomic<int> signal_{0};
    std::jthread watcher_;
};

}  // namespace cli
