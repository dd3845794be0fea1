#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "agent/net/listener.h"
#include "agent/query/query_session.h"
#include "agent/root/confined_root.h"
#include "agent/send/send_session.h"
#include "mirrowen/io/area/area_read_dev.h"
#include "tests/support/blocks.h"
#include "tests/support/raw_peer.h"

namespace tests {

/// Tells and sends what is below a directory to whoever asks on a port of this machine, from threads of the test's own
/// process.
class send_server_t {
  public:
    explicit send_server_t(const std::string& root) : root_(agent::confined_root_t::Open(root)) {
        agent::net::listener_options_t options;
        options.endpoint = {"127.0.0.1", 0};
        options.services = {agent::net::EService::eQuery, agent::net::EService::eSend};
        options.onSessionEnd = [this](const agent::net::session_report_t& report) {
            const std::lock_guard lock(mutex_);
            ended_.push_back(report.error);
            changed_.notify_all();
        };
        listener_.emplace(std::move(options), [this](const auto& channel, const agent::net::client_hello_t& hello) {
            if (hello.service == agent::net::EService::eQuery) {
                agent::query::RunQuerySession(channel, {.root = root_, .findPartial = {}, .keepsOwners = false});
            } else {
                agent::send::RunSendSession(channel, hello.transportVersion, root_);
            }
        });
        thread_ = std::jthread([this](const std::stop_token& stop) { listener_->Run(stop); });
    }
    ~send_server_t() { Stop(); }
    send_server_t(const send_server_t&) = delete;
    send_server_t& operator=(const send_server_t&) = delete;

    agent::net::endpoint_t Endpoint() const { return listener_->GetEndpoint(); }

    /// Ends the sessions and returns when they have ended.
    void Stop() {
        thread_.request_stop();
        if (thread_.joinable()) {
            thread_.join();
        }
    }

    /// The errors of the first `count` sessions that ended, empty for good ones; fewer when they do not end in time.
    std::vector<std::string> WaitEnded(std::size_t count) {
        std::unique_lock lock(mutex_);
        changed_.wait_for(lock, kPatience, [&] { return ended_.size() >= count; });
        return ended_;
    }

  private:
    std::shared_ptr<const agent::confined_root_t> root_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::string> ended_;
    std::optional<agent::net::listener_t> listener_;
    std::jthread thread_;
};

/// The rest of a source's bytes, holes as zeroes.
inline std::string ReadAllOf(io::area::area_read_dev_t& source) {
    std::string bytes;
    while (const auto area = source.ReadNext()) {
        for (std::uint64_t i = 0; i < area->GetBlockCount(); ++i) {
            const auto block = area->GetBlock(i);
            bytes += block->IsSparseBlock() ? std::string(block->GetIdentity().size, '\0') : BytesOf(*block);
        }
    }
    return bytes;
}

}  // namespace tests
