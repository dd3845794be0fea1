#pragma once

#include <gtest/gtest.h>

#include <condition_variable>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "agent/net/listener.h"
#include "agent/query/query_client.h"
#include "agent/query/query_session.h"
#include "agent/root/confined_root.h"
#include "tests/edge/raw_session.h"
#include "tests/support/temp_dir.h"

namespace tests {

/// A root whose queries are answered over a real socket, and beside it a directory that no query may reach.
class query_fixture_t : public testing::Test {
  protected:
    query_fixture_t() {
        std::filesystem::create_directories(Place("root"));
        std::filesystem::create_directories(Place("canary"));
        WriteFile(Place("canary/file"), "canary");
        // As a server does: no name before the names below the root.
        host_.root =
            std::make_shared<agent::confined_root_t>(agent::confined_root_t::Open(Place("root"))->OpenTop(), "");
    }

    ~query_fixture_t() override {
        if (thread_.joinable()) {
            thread_.request_stop();
            thread_.join();
        }
    }

    std::string Place(const std::string& name) const { return dir_ / name; }
    std::string At(const std::string& name) const { return dir_ / ("root/" + name); }

    /// The server's port; it starts when first asked for, with `host_` and `options_` as they are.
    std::uint16_t Port() {
        if (!listener_) {
            options_.endpoint = {"127.0.0.1", 0};
            options_.services = {agent::net::EService::eQuery};
            options_.onSessionEnd = [this](const agent::net::session_report_t& report) {
                const std::lock_guard lock(mutex_);
                errors_.push_back(report.error);
                ended_.notify_all();
            };
            listener_.emplace(
                options_, [this](const auto& channel, const auto&) { agent::query::RunQuerySession(channel, host_); });
            thread_ = std::jthread([this](const std::stop_token& stop) { listener_->Run(stop); });
        }
        return listener_->GetEndpoint().port;
    }

    std::unique_ptr<agent::query::query_client_t> Client() {
        return std::make_unique<agent::query::query_client_t>(agent::net::endpoint_t{"127.0.0.1", Port()},
                                                              agent::net::remote_options_t{});
    }

    /// A connection to which the service was granted.
    raw_peer_t Peer() {
        raw_peer_t peer(Port());
        peer.Send(ClientHello(3));
        EXPECT_EQ(U32At(peer.Receive(kServerHelloSize), 8), 0U);
        return peer;
    }

    /// Why the next session ended; empty for one that its client ended.
    std::string WaitEnd() {
        std::unique_lock lock(mutex_);
        if (!ended_.wait_for(lock, kPatience, [this] { return !errors_.empty(); })) {
            return "no session ended";
        }
        std::string error = errors_.front();
        errors_.erase(errors_.begin());
        return error;
    }

    agent::query::query_host_t host_;
    agent::net::listener_options_t options_;

  private:
    temp_dir_t dir_;
    std::mutex mutex_;
    std::condition_variable ended_;
    std::vector<std::string> errors_;
    std::optional<agent::net::listener_t> listener_;
    std::jthread thread_;
};

/// The text of what `call` throws; empty when it throws nothing.
template <class Call>
std::string ThrownText(const Call& call) {
    try {
        call();
    } catch (const std::exception& error) {
        return error.what();
    }
    return {};
}

}  // namespace tests
