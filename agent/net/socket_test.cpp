#include "agent/net/socket.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <string>
#include <vector>

#include "mirrowen/exc/exception.h"
#include "tests/support/raw_peer.h"

namespace agent::net {
namespace {

synch::wait_limits_t Soon() {
    return {synch::deadline_t::After(tests::kPatience), {}};
}

std::string MessageOfListening(const endpoint_t& endpoint) {
    try {
        Listen(endpoint);
        return "listened";
    } catch (const exc::CException& error) {
        return error.what();
    }
}

bool HasIpv6() {
    const posix::unique_fd_t socket(::socket(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in6 address{};
    address.sin6_family = AF_INET6;
    address.sin6_addr = IN6ADDR_LOOPBACK_INIT;
    return socket && ::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

TEST(Socket, PortZeroPicksAFreePortThatCanBeConnectedTo) {
    std::vector<std::string> hosts = {"127.0.0.1", "localhost"};
    if (HasIpv6()) {
        hosts.emplace_back("::1");
    }
    for (const std::string& host : hosts) {
        const posix::unique_fd_t listening = Listen({host, 0});
        const endpoint_t local = LocalEndpoint(listening.get());
        EXPECT_NE(local.port, 0);
        const posix::unique_fd_t connected = Connect({host, local.port}, Soon());
        EXPECT_EQ(PeerEndpoint(connected.get()), local) << host;
    }
}

TEST(Socket, OtherAddressesThanLoopbackAreForThoseWhoSaySo) {
    EXPECT_EQ(MessageOfListening({"0.0.0.0", 0}),
              "Failed to listen on [0.0.0.0:0].\n"
              "Refusing to listen on [0.0.0.0:0]: an unconfined process serves loopback addresses only.");
    EXPECT_EQ(MessageOfListening({"::", 0}),
              "Failed to listen on [[::]:0].\n"
              "Refusing to listen on [[::]:0]: an unconfined process serves loopback addresses only.");
    const posix::unique_fd_t anywhere = Listen({"0.0.0.0", 0}, EReach::eNetwork);
    EXPECT_EQ(LocalEndpoint(anywhere.get()).host, "0.0.0.0");
    const posix::unique_fd_t connected = Connect({"127.0.0.1", LocalEndpoint(anywhere.get()).port}, Soon());
    EXPECT_EQ(PeerEndpoint(connected.get()).host, "127.0.0.1");
}

TEST(Socket, AddressInUseIsNamed) {
    const posix::unique_fd_t listening = Listen({"127.0.0.1", 0});
    const endpoint_t taken = LocalEndpoint(listening.get());
    const std::string message = MessageOfListening(taken);
    EXPECT_NE(message.find("Failed to listen on [" + ToString(taken) + "]."), std::string::npos) << message;
    EXPECT_NE(message.find("Address already in use"), std::string::npos) << message;
}

TEST(Socket, ConnectingToNobodyNamesAddressAndReason) {
    const tests::refusing_port_t port;
    const endpoint_t nobody{"127.0.0.1", port.Port()};
    try {
        Connect(nobody, Soon());
        FAIL();
    } catch (const exc::CException& error) {
        EXPECT_EQ(error.Message(), "Failed to connect to [" + ToString(nobody) + "].");
        EXPECT_NE(std::string(error.what()).find("Connection refused"), std::string::npos) << error.what();
    }
}

TEST(Socket, DescriptorsAreClosedOnExec) {
    const posix::unique_fd_t listening = Listen({"127.0.0.1", 0});
    EXPECT_NE(::fcntl(listening.get(), F_GETFD) & FD_CLOEXEC, 0);
    const posix::unique_fd_t connected = Connect(LocalEndpoint(listening.get()), Soon());
    EXPECT_NE(::fcntl(connected.get(), F_GETFD) & FD_CLOEXEC, 0);
}

}  // namespace
}  // namespace agent::net
