#include "tests/support/fault_proxy.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace tests {

namespace {

constexpr std::size_t kPart = 16384;
constexpr int kSlice = 20;  // ms after which a stop request is seen

std::size_t Index(EWay way) {
    return way == EWay::eThere ? 0 : 1;
}

}  // namespace

fault_proxy_t::fault_proxy_t(std::uint16_t server)
    : server_(server), thread_([this](const std::stop_token& stop) { Run(stop); }) {}

fault_proxy_t::~fault_proxy_t() {
    thread_.request_stop();
    thread_.join();
    for (link_t& link : links_) {
        Close(link, false);
    }
}

void fault_proxy_t::Plan(const wire_fault_t& fault) {
    const std::scoped_lock lock(mutex_);
    planned_ = fault;
}

void fault_proxy_t::CallAt(EWay way, std::uint64_t offset, std::function<void()> action) {
    const std::scoped_lock lock(mutex_);
    call_ = call_t{way, offset, std::move(action)};
}

std::size_t fault_proxy_t::Connections() const {
    const std::scoped_lock lock(mutex_);
    return connections_;
}

std::string fault_proxy_t::Passed(EWay way) const {
    const std::scoped_lock lock(mutex_);
    return latest_[Index(way)];
}

void fault_proxy_t::WaitTaken(EWay way) const {
    int socket = -1;
    {
        const std::scoped_lock lock(mutex_);
        socket = latestSockets_[Index(way)];
    }
    WaitUntilTaken(socket);
}

void fault_proxy_t::Run(const std::stop_token& stop) {
    while (!stop.stop_requested()) {
        std::vector<pollfd> waiting{{listener_.Socket(), POLLIN, 0}};
        std::vector<std::pair<std::size_t, EWay>> owners{{0, EWay::eThere}};
        for (std::size_t index = 0; index < links_.size(); ++index) {
            for (const EWay way : {EWay::eThere, EWay::eBack}) {
                const way_t& side = links_[index].ways[Index(way)];
                if (!side.waiting.empty()) {
                    waiting.push_back({side.to, POLLOUT, 0});
                    owners.emplace_back(index, way);
                } else if (!side.ended) {
                    waiting.push_back({side.from, POLLIN, 0});
                    owners.emplace_back(index, way);
                }
            }
        }
        if (::poll(waiting.data(), waiting.size(), kSlice) <= 0) {
            continue;
        }
        for (std::size_t at = 1; at < waiting.size(); ++at) {
            link_t& link = links_[owners[at].first];
            if (waiting[at].revents != 0 && !link.over) {
                Step(link, owners[at].second, waiting[at].events);
            }
        }
        std::erase_if(links_, [](const link_t& link) { return link.over; });
        if (waiting[0].revents != 0) {
            Open();
        }
    }
}

void fault_proxy_t::Open() {
    const int client = ::accept4(listener_.Socket(), nullptr, nullptr, SOCK_CLOEXEC);
    if (client < 0) {
        return;
    }
    link_t link;
    link.sockets = {client, -1};
    try {
        raw_peer_t server(server_);
        link.sockets[1] = ::dup(server.Socket());
    } catch (const std::exception&) {
        Close(link, false);
        return;
    }
    const int on = 1;
    for (const int socket : link.sockets) {
        ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    }
    link.ways[0].from = link.ways[1].to = link.sockets[0];
    link.ways[0].to = link.ways[1].from = link.sockets[1];
    {
        const std::scoped_lock lock(mutex_);
        link.fault = std::exchange(planned_, std::nullopt);
        ++connections_;
        latest_ = {};
        latestSockets_ = {link.ways[0].to, link.ways[1].to};
    }
    if (link.fault && link.fault->offset == 0) {
        for (const EWay way : {EWay::eThere, EWay::eBack}) {
            std::string nothing;
            Harm(link, way, nothing);
        }
    }
    if (!link.over) {
        links_.push_back(std::move(link));
    }
}

void fault_proxy_t::Step(link_t& link, EWay way, short events) {
    if (events == POLLIN) {
        Take(link, way);
    }
    Give(link, way);
}

void fault_proxy_t::Take(link_t& link, EWay way) {
    way_t& side = link.ways[Index(way)];
    std::string bytes(kPart, '\0');
    const ssize_t got = ::recv(side.from, bytes.data(), bytes.size(), MSG_DONTWAIT);
    if (got < 0 && (errno == EAGAIN || errno == EINTR)) {
        return;
    }
    bytes.resize(static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
    side.ended = bytes.empty();
    Harm(link, way, bytes);
    side.waiting += bytes;
}

// `bytes` are the next ones of their way. Does to them what is planned, and what is to be done before they go on.
void fault_proxy_t::Harm(link_t& link, EWay way, std::string& bytes) {
    way_t& side = link.ways[Index(way)];
    const std::uint64_t begin = side.passed;
    side.passed += bytes.size();
    std::optional<call_t> call;
    {
        const std::scoped_lock lock(mutex_);
        latest_[Index(way)] += bytes;
        if (call_ && call_->way == way && side.passed > call_->offset) {
            call = std::exchange(call_, std::nullopt);
        }
    }
    if (call) {
        call->action();
    }
    const std::uint64_t end = side.passed;
    const bool ends = link.fault && link.fault->fault <= EWireFault::eReset;
    if (!link.fault || link.fault->way != way || link.fault->offset < begin ||
        (link.fault->offset >= end && !(ends && link.fault->offset == end))) {
        return;
    }
    const std::size_t at = static_cast<std::size_t>(link.fault->offset - begin);
    switch (link.fault->fault) {
        case EWireFault::eCut:
        case EWireFault::eReset:
            side.waiting += bytes.substr(0, at);
            bytes.clear();
            Give(link, way);
            Close(link, link.fault->fault == EWireFault::eReset);
            return;
        case EWireFault::eFlip:
            bytes[at] = static_cast<char>(bytes[at] ^ (1 << (link.fault->offset % 8)));
            break;
    }
    link.fault.reset();
}

void fault_proxy_t::Give(link_t& link, EWay way) {
    way_t& side = link.ways[Index(way)];
    if (link.over) {
        return;
    }
    while (!side.waiting.empty()) {
        const ssize_t sent = ::send(side.to, side.waiting.data(), side.waiting.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent < 0 && (errno == EAGAIN || errno == EINTR)) {
            return;
        }
        if (sent < 0) {
            Close(link, false);
            return;
        }
        side.waiting.erase(0, static_cast<std::size_t>(sent));
    }
    if (side.ended && !side.closed) {
        side.closed = true;
        ::shutdown(side.to, SHUT_WR);
    }
    if (link.ways[0].closed && link.ways[1].closed) {
        Close(link, false);
    }
}

void fault_proxy_t::Close(link_t& link, bool reset) {
    link.over = true;
    for (int& socket : link.sockets) {
        const linger hard{1, 0};
        if (reset && socket >= 0) {
            ::setsockopt(socket, SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
        }
        if (socket >= 0) {
            ::close(std::exchange(socket, -1));
        }
    }
}

}  // namespace tests
