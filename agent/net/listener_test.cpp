#include "agent/net/listener.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <latch>
#include <mutex>
#include <string>
#include <vector>

#include "agent/net/socket.h"
#include "brannock/transmission/transmission_cfg.h"
#include "mirrowen/exc/runtime_exc.h"
#include "tests/support/raw_peer.h"

namespace agent::net {
namespace {

constexpr std::uint32_t kVersion = brannock::transmission::kTransportVersion;

// A listener on its own thread, with the reports of ended connections.
class running_listener_t {
  public:
    explicit running_listener_t(listener_t::session_handler_t handler, listener_options_t options = {})
        : listener_(Complete(std::move(options)), std::move(handler)),
          thread_([this](const std::stop_token& stop) { listener_.Run(stop); }) {}

    io::binary_stream_tt Connected(std::shared_ptr<io::net::socket_dev_t>* device = nullptr) {
        const auto deadline = synch::deadline_t::After(tests::kPatience);
        auto channel = std::make_shared<io::net::socket_dev_t>(Connect(listener_.GetEndpoint(), {deadline, {}}), "test",
                                                               io::net::socket_limits_t{tests::kPatience, {}});
        if (device != nullptr) {
            *device = channel;
        }
        return io::binary_stream_tt(channel);
    }

    session_report_t WaitReport() {
        std::unique_lock lock(mutex_);
        EXPECT_TRUE(changed_.wait_for(lock, tests::kPatience, [&] { return !reports_.empty(); }));
        session_report_t report = reports_.empty() ? session_report_t{} : reports_.front();
        if (!reports_.empty()) {
            reports_.erase(reports_.begin());
        }
        return report;
    }

    void Stop() {
        thread_.request_stop();
        thread_.join();
    }

    listener_t& Listener() { return listener_; }

  private:
    listener_options_t Complete(listener_options_t options) {
        options.endpoint = {"127.0.0.1", 0};
        options.onSessionEnd = [this](const session_report_t& report) {
            const std::lock_guard lock(mutex_);
            reports_.push_back(report);
            changed_.notify_all();
        };
        return options;
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<session_report_t> reports_;
    listener_t listener_;
    std::jthread thread_;
};

client_hello_t Hello() {
    client_hello_t hello;
    hello.transportVersion = kVersion;
    return hello;
}

// Echoes one number.
void Echo(const std::shared_ptr<session_channel_t>& channel, const client_hello_t&) {
    io::binary_stream_tt stream(channel);
    stream.WriteU32(stream.ReadU32());
    stream.Flush();
}

TEST(Listener, GrantedSessionRunsItsHandler) {
    running_listener_t running(Echo);
    auto stream = running.Connected();
    WriteClientHello(stream, Hello());
    const server_hello_t answer = ReadServerHello(stream);
    EXPECT_EQ(answer.status, EStatus::eOk);
    EXPECT_EQ(answer.transportVersion, kVersion);
    EXPECT_EQ(answer.maxBlockSize, 16u << 20);
    EXPECT_EQ(answer.maxStreams, 1u);
    EXPECT_EQ(answer.idleSeconds, 120u);
    EXPECT_NE(answer.sessionId, session_id_t{});
    EXPECT_NE(answer.key, session_key_t{});
    stream.WriteU32(42);
    EXPECT_EQ(stream.ReadU32(), 42u);
    const session_report_t report = running.WaitReport();
    EXPECT_EQ(report.error, "");
    EXPECT_EQ(report.peer.rfind("127.0.0.1:", 0), 0u);
}

struct refusal_t {
    const char* name;
    std::uint32_t version;
    EService service;
    std::uint32_t transport;
    EStatus status;
    const char* text;
};

class ListenerRefusal : public ::testing::TestWithParam<refusal_t> {};

TEST_P(ListenerRefusal, IsAnsweredWithStatusAndText) {
    running_listener_t running([](auto&&...) { FAIL() << "a refused connection has no session"; });
    auto stream = running.Connected();
    client_hello_t hello = Hello();
    hello.version = GetParam().version;
    hello.service = GetParam().service;
    hello.transportVersion = GetParam().transport;
    WriteClientHello(stream, hello);
    const server_hello_t answer = ReadServerHello(stream);
    EXPECT_EQ(answer.status, GetParam().status);
    EXPECT_EQ(answer.text, GetParam().text);
    EXPECT_EQ(answer.key, session_key_t{});
    EXPECT_THROW(stream.ReadU8(), exc::CRuntimeExc);  // closed
    EXPECT_EQ(running.WaitReport().error, std::string("Connection was refused: ") + GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(
    All, ListenerRefusal,
    ::testing::Values(
        refusal_t{"Version", 2, EService::eSession, kVersion, EStatus::eUnsupportedVersion,
                  "This version of the protocol is not supported."},
        refusal_t{"Transport", 1, EService::eSession, kVersion + 1, EStatus::eUnsupportedVersion,
                  "This version of the protocol is not supported."},
        refusal_t{"Join", 1, EService::eJoin, kVersion, EStatus::eUnsupportedService, "This service is not offered."},
        refusal_t{"Query", 1, EService::eQuery, kVersion, EStatus::eUnsupportedService, "This service is not offered."},
        refusal_t{"Send", 1, EService::eSend, kVersion, EStatus::eUnsupportedService, "This service is not offered."},
        refusal_t{"Unknown", 1, EService{77}, kVersion, EStatus::eUnsupportedService, "This service is not offered."}),
    [](const auto& param) { return param.param.name; });

TEST(Listener, EachOfferedServiceReachesTheHandlerByNameAndTheOthersAreRefused) {
    listener_options_t options;
    options.services = {EService::eQuery, EService::eSend};
    running_listener_t running(
        [](const std::shared_ptr<session_channel_t>& channel, const client_hello_t& hello) {
            io::binary_stream_tt stream(channel);
            stream.WriteU32(static_cast<std::uint32_t>(hello.service));
            stream.WriteU32(hello.transportVersion);
            stream.Flush();
        },
        options);
    for (const EService service : {EService::eQuery, EService::eSend}) {
        auto stream = running.Connected();
        client_hello_t hello = Hello();
        hello.service = service;
        WriteClientHello(stream, hello);
        EXPECT_EQ(ReadServerHello(stream).status, EStatus::eOk);
        EXPECT_EQ(stream.ReadU32(), static_cast<std::uint32_t>(service));
        EXPECT_EQ(stream.ReadU32(), kVersion);
        EXPECT_EQ(running.WaitReport().error, "");
    }
    auto stream = running.Connected();
    WriteClientHello(stream, Hello());  // a session
    EXPECT_EQ(ReadServerHello(stream).status, EStatus::eUnsupportedService);
}

TEST(Listener, SessionOverTheLimitIsRefusedAndTheOthersGoOn) {
    listener_options_t options;
    options.maxSessions = 1;
    running_listener_t running(Echo, options);
    auto first = running.Connected();
    WriteClientHello(first, Hello());
    ASSERT_EQ(ReadServerHello(first).status, EStatus::eOk);
    auto second = running.Connected();
    WriteClientHello(second, Hello());
    EXPECT_EQ(ReadServerHello(second).status, EStatus::eTooManySessions);
    EXPECT_EQ(running.WaitReport().error, "Connection was refused: Too many sessions.");
    first.WriteU32(7);
    EXPECT_EQ(first.ReadU32(), 7u);
}

TEST(Listener, PlaceOfAnEndedSessionIsGivenToTheNext) {
    listener_options_t options;
    options.maxSessions = 1;
    running_listener_t running(Echo, options);
    for (std::uint32_t round = 0; round < 3; ++round) {
        auto stream = running.Connected();
        WriteClientHello(stream, Hello());
        ASSERT_EQ(ReadServerHello(stream).status, EStatus::eOk);
        stream.WriteU32(round);
        EXPECT_EQ(stream.ReadU32(), round);
        EXPECT_EQ(running.WaitReport().error, "");
    }
}

TEST(Listener, ConnectionsThatSayNothingAreBounded) {
    listener_options_t options;
    options.maxSessions = 1;
    options.preambleTimeout = tests::kPatience;  // none of them is given up meanwhile
    running_listener_t running(Echo, options);
    std::vector<std::shared_ptr<io::net::socket_dev_t>> silent;
    for (std::size_t i = 0; i < options.maxSessions + kSpareConnections; ++i) {
        running.Connected(&silent.emplace_back());
    }
    auto oneTooMany = running.Connected();
    EXPECT_THROW(oneTooMany.ReadU8(), exc::CRuntimeExc);  // closed without an answer
    EXPECT_EQ(running.Listener().CountConnections(), options.maxSessions + kSpareConnections);
}

TEST(Listener, AnotherProtocolEndsTheConnection) {
    running_listener_t running(Echo);
    auto stream = running.Connected();
    const std::string request = "GET / HTTP/1.1\r\n\r\n" + std::string(100, 'x');
    stream.WriteExact(request.data(), request.size());
    stream.Flush();
    EXPECT_EQ(running.WaitReport().error, "The peer does not speak this protocol.");
}

TEST(Listener, SilentConnectionIsGivenUpAtTheDeadlineOfThePreamble) {
    listener_options_t options;
    options.preambleTimeout = std::chrono::milliseconds(1);
    running_listener_t running(Echo, options);
    auto stream = running.Connected();
    EXPECT_NE(running.WaitReport().error.find("the deadline has passed"), std::string::npos);
    EXPECT_THROW(stream.ReadU8(), std::exception);
}

TEST(Listener, StopEndsSessionsThatWaitForTheirPeer) {
    running_listener_t running(Echo);
    auto stream = running.Connected();
    WriteClientHello(stream, Hello());
    ASSERT_EQ(ReadServerHello(stream).status, EStatus::eOk);
    running.Stop();
    EXPECT_NE(running.WaitReport().error.find("was cancelled"), std::string::npos);
    EXPECT_EQ(running.Listener().CountConnections(), 0u);
}

TEST(Listener, FailureOfASessionIsReportedAndTheNextOneRuns) {
    running_listener_t running([](const auto&, const client_hello_t&) { throw exc::CRuntimeExc("broken session"); });
    for (int i = 0; i < 2; ++i) {
        auto stream = running.Connected();
        WriteClientHello(stream, Hello());
        EXPECT_EQ(ReadServerHello(stream).status, EStatus::eOk);
        EXPECT_EQ(running.WaitReport().error, "broken session");
    }
}

}  // namespace
}  // namespace agent::net
