#include "agent/net/socket.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <exception>
#include <memory>

#include "mirrowen/exc/regen.h"
#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/posix/errno_exc.h"

namespace agent::net {

namespace {

constexpr int kBacklog = 128;

struct addresses_deleter_t {
    void operator()(addrinfo* list) const noexcept { ::freeaddrinfo(list); }
};
using addresses_t = std::unique_ptr<addrinfo, addresses_deleter_t>;

addresses_t resolve(const endpoint_t& endpoint, int flags) {
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = flags | AI_NUMERICSERV;
    addrinfo* list = nullptr;
    const int error = ::getaddrinfo(endpoint.host.c_str(), std::to_string(endpoint.port).c_str(), &hints, &list);
    if (error != 0) {
        throw exc::CRuntimeExc("Failed to resolve [%1]: %2.", endpoint.host, std::string_view(::gai_strerror(error)));
    }
    return addresses_t(list);
}

posix::unique_fd_t make_socket(const addrinfo& address, const std::string& name) {
    posix::unique_fd_t fd(::socket(address.ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!fd) {
        throw posix::errno_exc_t("Failed to create a socket for [%1]", name, errno);
    }
    return fd;
}

void set_no_delay(int fd) {
    // Gathering is done above, by the channel; a failure only costs speed.
    const int on = 1;
    (void)::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

void wait_connected(int fd, const std::string& name, const synch::wait_limits_t& limits) {
    for (;;) {
        if (limits.stop.stop_requested()) {
            throw exc::CRuntimeExc("Connecting to [%1] was cancelled.", name);
        }
        pollfd waiting{fd, POLLOUT, 0};
        const int ready = ::poll(&waiting, 1, static_cast<int>(limits.deadline.NextSlice().count()));
        if (ready > 0) {
            break;
        }
        if (limits.deadline.IsExpired()) {
            throw exc::CRuntimeExc("Connecting to [%1] timed out.", name);
        }
    }
    int error = 0;
    socklen_t size = sizeof error;
    if (::getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &size) != 0 || error != 0) {
        throw posix::errno_exc_t("Failed to connect to [%1]", name, error != 0 ? error : errno);
    }
}

posix::unique_fd_t connect_one(const addrinfo& address, const std::string& name, const synch::wait_limits_t& limits) {
    posix::unique_fd_t fd = make_socket(address, name);
    set_no_delay(fd.get());
    if (::connect(fd.get(), address.ai_addr, address.ai_addrlen) != 0) {
        if (errno != EINPROGRESS) {
            throw posix::errno_exc_t("Failed to connect to [%1]", name, errno);
        }
        wait_connected(fd.get(), name, limits);
    }
    return fd;
}

bool is_loopback(const addrinfo& address) {
    if (address.ai_family == AF_INET) {
        const auto* v4 = reinterpret_cast<const sockaddr_in*>(address.ai_addr);
        return (ntohl(v4->sin_addr.s_addr) >> 24) == 127;
    }
    if (address.ai_family == AF_INET6) {
        const auto* v6 = reinterpret_cast<const sockaddr_in6*>(address.ai_addr);
        return IN6_IS_ADDR_LOOPBACK(&v6->sin6_addr);
    }
    return false;
}

posix::unique_fd_t listen_one(const addrinfo& address, const std::string& name) {
    posix::unique_fd_t fd = make_socket(address, name);
    const int on = 1;
    (void)::setsockopt(fd.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (::bind(fd.get(), address.ai_addr, address.ai_addrlen) != 0) {
        throw posix::errno_exc_t("Failed to bind [%1]", name, errno);
    }
    if (::listen(fd.get(), kBacklog) != 0) {
        throw posix::errno_exc_t("Failed to listen on [%1]", name, errno);
    }
    return fd;
}

endpoint_t to_endpoint(const sockaddr_storage& address) {
    char text[INET6_ADDRSTRLEN] = {};
    if (address.ss_family == AF_INET) {
        const auto& v4 = reinterpret_cast<const sockaddr_in&>(address);
        ::inet_ntop(AF_INET, &v4.sin_addr, text, sizeof text);
        return {text, ntohs(v4.sin_port)};
    }
    const auto& v6 = reinterpret_cast<const sockaddr_in6&>(address);
    ::inet_ntop(AF_INET6, &v6.sin6_addr, text, sizeof text);
    return {text, ntohs(v6.sin6_port)};
}

// Descriptors or memory may be back in a moment; whoever listens goes on instead of ending every session.
bool is_passing(int error) {
    return error == EINTR || error == EAGAIN || error == ECONNABORTED || error == EMFILE || error == ENFILE ||
           error == ENOBUFS || error == ENOMEM || error == EPROTO;
}

using name_function_t = int (*)(int, sockaddr*, socklen_t*);

endpoint_t name_of(int socket, name_function_t function) {
    sockaddr_storage address{};
    socklen_t size = sizeof address;
    if (function(socket, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
        throw posix::errno_exc_t("Failed to ask for the address of a %1", "socket", errno);
    }
    return to_endpoint(address);
}

}  // namespace

posix::unique_fd_t Connect(const endpoint_t& endpoint, const synch::wait_limits_t& limits) {
    const std::string name = ToString(endpoint);
    try {
        const addresses_t list = resolve(endpoint, 0);
        for (const addrinfo* address = list.get();; address = address->ai_next) {
            try {
                return connect_one(*address, name, limits);
            } catch (const std::exception&) {
                if (address->ai_next == nullptr || limits.stop.stop_requested() || limits.deadline.IsExpired()) {
                    throw;
                }
            }
        }
    } catch (const std::exception&) {
        exc::RegenExc("Failed to connect to [%1].", name);
    }
}

posix::unique_fd_t Listen(const endpoint_t& endpoint, EReach reach) {
    const std::string name = ToString(endpoint);
    try {
        const addresses_t list = resolve(endpoint, AI_PASSIVE);
        if (reach == EReach::eLoopback && !is_loopback(*list)) {
            throw exc::CRuntimeExc("Refusing to listen on [%1]: an unconfined process serves loopback addresses only.",
                                   name);
        }
        return listen_one(*list, name);
    } catch (const std::exception&) {
        exc::RegenExc("Failed to listen on [%1].", name);
    }
}

posix::unique_fd_t Accept(int listening) {
    posix::unique_fd_t fd(::accept4(listening, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (fd) {
        set_no_delay(fd.get());
    } else if (!is_passing(errno)) {
        throw posix::errno_exc_t("Failed to accept a connection on [%1]", ToString(LocalEndpoint(listening)), errno);
    }
    return fd;
}

endpoint_t LocalEndpoint(int socket) {
    return name_of(socket, &::getsockname);
}

endpoint_t PeerEndpoint(int socket) {
    return name_of(socket, &::getpeername);
}

}  // namespace agent::net
