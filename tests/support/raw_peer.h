#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace tests {

/// How long a test waits for what must come, before it fails. It ends what hangs, and is no measure of anything: on a
/// busy machine a thread may not run for seconds.
inline constexpr std::chrono::seconds kPatience{120};

/// Waits until the far end of a connection, both of whose ends are in this process, has taken all that was sent off its
/// socket, or has closed it. Throws `std::runtime_error` when it does not.
void WaitUntilTaken(int socket);

/// A socket of the loopback interface in a test's hands, bytes in and bytes out. It owns the descriptor. One thread.
class raw_peer_t {
  public:
    /// Connects to a port of this machine. Throws `std::runtime_error`, like every other function, when it fails.
    explicit raw_peer_t(std::uint16_t port);
    /// Takes a connected socket over.
    static raw_peer_t Adopt(int socket) { return raw_peer_t(socket, 0); }
    ~raw_peer_t();
    raw_peer_t(raw_peer_t&& other) noexcept;
    raw_peer_t& operator=(raw_peer_t&&) = delete;

    /// Sends everything. False when the far end takes no more: it has closed.
    bool Send(std::string_view bytes);
    /// Exactly so many bytes; less only when the far end closed.
    std::string Receive(std::size_t count);
    /// All there is until the far end closes.
    std::string ReceiveAll();

    void CloseWrite();
    /// Waits until the far end has taken all that was sent off its socket; both ends must be in this process.
    void WaitTaken() const { WaitUntilTaken(socket_); }

    int Socket() const noexcept { return socket_; }

  private:
    raw_peer_t(int socket, int) noexcept : socket_(socket) {}
    void Wait(short events) const;

    int socket_;
};

/// Listens on a free port of the loopback interface; a scripted server accepts from it.
class raw_listener_t {
  public:
    raw_listener_t();
    ~raw_listener_t();
    raw_listener_t(const raw_listener_t&) = delete;
    raw_listener_t& operator=(const raw_listener_t&) = delete;

    std::uint16_t Port() const;
    /// Waits for a connection. Throws `std::runtime_error` when none comes.
    raw_peer_t Accept();
    int Socket() const noexcept { return socket_; }

  private:
    int socket_;
};

/// A port of the loopback interface that is taken and at which nobody listens: connections are refused for the life of
/// this object. A port that was free a moment ago may be taken by another process by now.
class refusing_port_t {
  public:
    refusing_port_t();
    ~refusing_port_t();
    refusing_port_t(const refusing_port_t&) = delete;
    refusing_port_t& operator=(const refusing_port_t&) = delete;

    std::uint16_t Port() const;

  private:
    int socket_;
};

}  // namespace tests
