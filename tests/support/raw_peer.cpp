#include "tests/support/raw_peer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <utility>

namespace tests {

namespace {

[[noreturn]] void Fail(const std::string& what) {
    throw std::runtime_error(what + ": " + std::strerror(errno));
}

sockaddr_in Loopback(std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

int NewSocket() {
    const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (socket < 0) {
        Fail("socket");
    }
    return socket;
}

int NewBoundSocket() {
    const int socket = NewSocket();
    const sockaddr_in address = Loopback(0);
    if (::bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        ::close(socket);
        Fail("bind");
    }
    return socket;
}

std::uint16_t LocalPort(int socket) {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    return ::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size) == 0 ? ntohs(address.sin_port) : 0;
}

std::uint16_t PeerPort(int socket) {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    return ::getpeername(socket, reinterpret_cast<sockaddr*>(&address), &size) == 0 ? ntohs(address.sin_port) : 0;
}

// The other end of a connection whose two ends are in this process.
int FarEnd(int socket) {
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        const int fd = std::stoi(entry.path().filename());
        if (fd != socket && PeerPort(fd) == LocalPort(socket) && LocalPort(fd) == PeerPort(socket)) {
            return fd;
        }
    }
    return -1;
}

}  // namespace

void WaitUntilTaken(int socket) {
    const auto end = std::chrono::steady_clock::now() + kPatience;
    while (std::chrono::steady_clock::now() < end) {
        const int far = FarEnd(socket);
        int underWay = 0;
        int waiting = 0;
        if (far < 0 || (::ioctl(socket, TIOCOUTQ, &underWay) == 0 && underWay == 0 &&
                        ::ioctl(far, FIONREAD, &waiting) == 0 && waiting == 0)) {
            return;
        }
        ::poll(nullptr, 0, 1);
    }
    throw std::runtime_error("the far end does not read");
}

raw_peer_t::raw_peer_t(std::uint16_t port) : socket_(NewSocket()) {
    const sockaddr_in address = Loopback(port);
    if (::connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        ::close(socket_);
        Fail("connect");
    }
}

raw_peer_t::~raw_peer_t() {
    if (socket_ >= 0) {
        ::close(socket_);
    }
}

raw_peer_t::raw_peer_t(raw_peer_t&& other) noexcept : socket_(std::exchange(other.socket_, -1)) {}

void raw_peer_t::Wait(short events) const {
    pollfd waiting{socket_, events, 0};
    const int limit = static_cast<int>(std::chrono::milliseconds(kPatience).count());
    if (::poll(&waiting, 1, limit) <= 0) {
        throw std::runtime_error("the far end neither moves nor closes");
    }
}

bool raw_peer_t::Send(std::string_view bytes) {
    while (!bytes.empty()) {
        Wait(POLLOUT);
        const ssize_t sent = ::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent < 0 && errno != EAGAIN && errno != EINTR) {
            return false;
        }
        bytes.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(sent, 0)));
    }
    return true;
}

std::string raw_peer_t::Receive(std::size_t count) {
    std::string bytes;
    std::array<char, 65536> part{};
    while (bytes.size() < count) {
        Wait(POLLIN);
        const ssize_t got = ::recv(socket_, part.data(), std::min(part.size(), count - bytes.size()), 0);
        if (got <= 0) {
            break;  // closed, or reset: nothing more will come
        }
        bytes.append(part.data(), static_cast<std::size_t>(got));
    }
    return bytes;
}

std::string raw_peer_t::ReceiveAll() {
    return Receive(std::string().max_size());
}

void raw_peer_t::CloseWrite() {
    ::shutdown(socket_, SHUT_WR);
}

raw_listener_t::raw_listener_t() : socket_(NewBoundSocket()) {
    if (::listen(socket_, 64) != 0) {
        ::close(socket_);
        Fail("listen");
    }
}

raw_listener_t::~raw_listener_t() {
    ::close(socket_);
}

std::uint16_t raw_listener_t::Port() const {
    return LocalPort(socket_);
}

raw_peer_t raw_listener_t::Accept() {
    pollfd waiting{socket_, POLLIN, 0};
    if (::poll(&waiting, 1, static_cast<int>(std::chrono::milliseconds(kPatience).count())) <= 0) {
        throw std::runtime_error("nobody connects");
    }
    const int socket = ::accept4(socket_, nullptr, nullptr, SOCK_CLOEXEC);
    if (socket < 0) {
        Fail("accept");
    }
    return raw_peer_t::Adopt(socket);
}

refusing_port_t::refusing_port_t() : socket_(NewBoundSocket()) {}

refusing_port_t::~refusing_port_t() {
    ::close(socket_);
}

std::uint16_t refusing_port_t::Port() const {
    return LocalPort(socket_);
}

}  // namespace tests
