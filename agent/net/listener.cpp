#include "agent/net/listener.h"

#include <poll.h>

#include <algorithm>
#include <atomic>
#include <system_error>
#include <utility>

#include "agent/net/socket.h"
#include "brannock/transmission/transmission_cfg.h"
#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/io/block/block_math.h"
#include "mirrowen/util/clock.h"
#include "mirrowen/util/random.h"

namespace agent::net {

namespace {

constexpr std::uint32_t kMaxStreams = 1;

template <std::size_t N>
void fill_random(std::array<std::uint8_t, N>& out) {
    util::random().Fill(std::as_writable_bytes(std::span(out)));
}

bool is_offered(const listener_options_t& options, EService service) {
    return std::find(options.services.begin(), options.services.end(), service) != options.services.end();
}

server_hello_t judge(const client_hello_t& hello, const listener_options_t& options, bool full) {
    server_hello_t answer;
    answer.transportVersion = brannock::transmission::kTransportVersion;
    answer.maxBlockSize = static_cast<std::uint32_t>(io::block::kMaxBlockSize);
    answer.maxStreams = kMaxStreams;
    answer.idleSeconds =
        static_cast<std::uint32_t>(std::chrono::duration_cast<std::chrono::seconds>(options.idleTimeout).count());
    if (hello.version != kPreambleVersion || hello.transportVersion != brannock::transmission::kTransportVersion) {
        answer.status = EStatus::eUnsupportedVersion;
        answer.text = "This version of the protocol is not supported.";
    } else if (!is_offered(options, hello.service)) {
        answer.status = EStatus::eUnsupportedService;
        answer.text = "This service is not offered.";
    } else if (full) {
        answer.status = EStatus::eTooManySessions;
        answer.text = "Too many sessions.";
    } else {
        fill_random(answer.sessionId);
        fill_random(answer.key);
    }
    return answer;
}

}  // namespace

struct listener_t::session_t {
    std::jthread thread;
    std::atomic<bool> ended{false};
};

/// A granted session's place, given back at its end.
class listener_t::admission_t {
  public:
    /// Takes a place when there is one.
    explicit admission_t(listener_t& listener) : listener_(&listener) {
        const synch::lock_t lock(listener.mutex_);
        if (listener.granted_ < listener.options_.maxSessions) {
            ++listener.granted_;
        } else {
            listener_ = nullptr;
        }
    }
    admission_t(admission_t&& other) noexcept : listener_(std::exchange(other.listener_, nullptr)) {}
    admission_t& operator=(admission_t&&) = delete;
    ~admission_t() {
        if (listener_ != nullptr) {
            const synch::lock_t lock(listener_->mutex_);
            --listener_->granted_;
        }
    }

    bool IsGranted() const noexcept { return listener_ != nullptr; }

  private:
    listener_t* listener_;
};

listener_t::listener_t(listener_options_t options, session_handler_t handler)
    : options_(std::move(options)), handler_(std::move(handler)), socket_(Listen(options_.endpoint)) {}

listener_t::listener_t(listener_options_t options, session_handler_t handler, posix::unique_fd_t socket)
    : options_(std::move(options)), handler_(std::move(handler)), socket_(std::move(socket)) {}

listener_t::~listener_t() = default;

endpoint_t listener_t::GetEndpoint() const {
    return LocalEndpoint(socket_.get());
}

void listener_t::Run(const std::stop_token& stop) {
    while (!stop.stop_requested()) {
        pollfd waiting{socket_.get(), POLLIN, 0};
        const int ready = ::poll(&waiting, 1, static_cast<int>(util::kWaitSlice.count()));
        ReapEnded();
        if (ready > 0) {
            AcceptOne(stop);
        }
    }
    std::list<std::unique_ptr<session_t>> remaining;
    {
        const synch::lock_t lock(mutex_);
        remaining.swap(sessions_);
    }
    for (const auto& session : remaining) {
        session->thread.request_stop();
    }
}

void listener_t::AcceptOne(const std::stop_token& stop) {
    posix::unique_fd_t socket = Accept(socket_.get());
    if (!socket) {
        // What is waiting keeps waiting, so asking again at once would only burn time until there is room for it.
        util::clock().SleepFor(util::kWaitSlice, stop);
        return;
    }
    if (CountConnections() >= options_.maxSessions + kSpareConnections) {
        return;
    }
    auto session = std::make_unique<session_t>();
    session_t& state = *session;
    try {
        state.thread = std::jthread([this, &state, owned = std::move(socket)](const std::stop_token& own) mutable {
            Serve(std::move(owned), own);
            state.ended.store(true, std::memory_order_release);
        });
    } catch (const std::system_error&) {
        return;  // no thread to be had now: this connection is closed, the others go on
    }
    const synch::lock_t lock(mutex_);
    sessions_.push_back(std::move(session));
}

void listener_t::Serve(posix::unique_fd_t socket, const std::stop_token& stop) {
    const auto begin = util::clock().SteadyNow();
    session_report_t report;
    try {
        const std::shared_ptr<void> scope = options_.threadScope ? options_.threadScope() : nullptr;
        report.peer = ToString(PeerEndpoint(socket.get()));
        const auto channel = std::make_shared<session_channel_t>(std::move(socket), report.peer,
                                                                 io::net::socket_limits_t{options_.idleTimeout, stop},
                                                                 options_.minimumRate, options_.threadScope);
        channel->SetDeadline(synch::deadline_t::After(options_.preambleTimeout));
        io::binary_stream_tt stream(channel);
        const client_hello_t hello = ReadClientHello(stream);
        const admission_t place = Answer(stream, hello);
        channel->SetDeadline(synch::deadline_t::Never());
        handler_(channel, hello);
    } catch (const std::exception& error) {
        report.error = error.what();
    }
    report.duration = std::chrono::duration_cast<std::chrono::milliseconds>(util::clock().SteadyNow() - begin);
    if (options_.onSessionEnd) {
        options_.onSessionEnd(report);
    }
}

listener_t::admission_t listener_t::Answer(io::binary_stream_tt& stream, const client_hello_t& hello) {
    admission_t place(*this);
    const server_hello_t answer = judge(hello, options_, !place.IsGranted());
    WriteServerHello(stream, answer);
    stream.Flush();
    if (answer.status != EStatus::eOk) {
        throw exc::CRuntimeExc("Connection was refused: %1", answer.text);
    }
    return place;
}

std::size_t listener_t::CountConnections() const {
    const synch::lock_t lock(mutex_);
    return sessions_.size();
}

void listener_t::ReapEnded() {
    std::list<std::unique_ptr<session_t>> ended;
    const synch::lock_t lock(mutex_);
    for (auto at = sessions_.begin(); at != sessions_.end();) {
        const auto current = at++;
        if ((*current)->ended.load(std::memory_order_acquire)) {
            ended.splice(ended.end(), sessions_, current);
        }
    }
}

}  // namespace agent::net
