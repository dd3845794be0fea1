#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/raw_peer.h"

namespace tests {

/// Towards the server and back.
enum class EWay { eThere, eBack };

enum class EWireFault {
    eCut,    ///< both connections are closed
    eReset,  ///< both connections are closed with a reset
    eFlip,   ///< one bit of the byte is flipped
};

/// What happens to the byte at `offset` of one way of a connection.
struct wire_fault_t {
    EWay way = EWay::eThere;
    std::uint64_t offset = 0;
    EWireFault fault = EWireFault::eCut;
};

/// Stands between a client and a server on the loopback interface, passes on what they send, and does one thing wrong.
/// It runs on a thread of its own.
class fault_proxy_t {
  public:
    explicit fault_proxy_t(std::uint16_t server);
    ~fault_proxy_t();
    fault_proxy_t(const fault_proxy_t&) = delete;
    fault_proxy_t& operator=(const fault_proxy_t&) = delete;

    std::uint16_t Port() const { return listener_.Port(); }

    /// For the next connection; the ones after it pass unharmed.
    void Plan(const wire_fault_t& fault);
    /// Calls `action` on the proxy's thread, once, before byte `offset` of the next connection goes on.
    void CallAt(EWay way, std::uint64_t offset, std::function<void()> action);

    /// Connections until now.
    std::size_t Connections() const;
    /// What went over the latest connection.
    std::string Passed(EWay way) const;
    /// Waits until the end to which the latest connection's way leads has taken what it was given off its socket; that
    /// end must be in this process.
    void WaitTaken(EWay way) const;

  private:
    struct way_t {
        int from = -1;
        int to = -1;
        std::string waiting;
        std::uint64_t passed = 0;
        bool ended = false;  ///< the sender will send no more
        bool closed = false;
    };
    struct link_t {
        std::array<int, 2> sockets{};
        std::array<way_t, 2> ways;
        std::optional<wire_fault_t> fault;
        bool over = false;
    };
    struct call_t {
        EWay way;
        std::uint64_t offset;
        std::function<void()> action;
    };

    void Run(const std::stop_token& stop);
    void Open();
    void Step(link_t& link, EWay way, short events);
    void Take(link_t& link, EWay way);
    void Harm(link_t& link, EWay way, std::string& bytes);
    void Give(link_t& link, EWay way);
    static void Close(link_t& link, bool reset);

    const std::uint16_t server_;
    raw_listener_t listener_;
    std::vector<link_t> links_;
    mutable std::mutex mutex_;
    std::optional<wire_fault_t> planned_;
    std::optional<call_t> call_;
    std::size_t connections_ = 0;
    std::array<std::string, 2> latest_;
    std::array<int, 2> latestSockets_{-1, -1};  ///< to which its ways lead
    std::jthread thread_;
};

}  // namespace tests
