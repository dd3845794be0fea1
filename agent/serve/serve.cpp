#include "agent/serve/serve.h"

#include <utility>

#include "agent/batch/batch_factory.h"
#include "agent/gate/path_gate.h"
#include "agent/gate/session_scope.h"
#include "agent/net/receive_session.h"
#include "agent/query/query_session.h"
#include "agent/send/send_session.h"
#include "agent/serve/launch.h"
#include "agent/staging/item_factory.h"
#include "agent/staging/receiver_scope.h"
#include "agent/staging/staging_receiver.h"
#include "corvel/corvel_ctx.h"
#include "tarn/blocks/file_area_dev_factory.h"

namespace agent::serve {

namespace {

// Opened on every thread that works for a peer: its paths pass the gate, its items go below the root.
struct peer_scope_t {
    explicit peer_scope_t(std::shared_ptr<IItemReceiver> itemReceiver) : receiver(std::move(itemReceiver)) {}

    const session_scope_t session;
    const receiver_scope_t receiver;
};

}  // namespace

class server_t::impl_t {
  public:
    explicit impl_t(serve_options_t options)
        : launch_(options),
          root_(launch_.GetRoot()),
          staging_(std::make_shared<staging_t>(root_, staging_options_t{.keepPartial = options.keepPartial})),
          receiver_(std::make_shared<staging_receiver_t>(
              staging_, options.numericOwner ? util::EOwnerSource::eNumber : util::EOwnerSource::eNameFirst,
              options.idleTimeout)),
          queries_{
              .root = root_,
              .findPartial = [this](const std::string& path, std::uint64_t size,
                                    const util::SFileTime& time) { return staging_->FindPartial(path, size, time); },
              .keepsOwners = launch_.GivesAnyOwner()},
          listener_(
              ListenerOptions(options), [this](const auto& channel, const auto& hello) { Serve(channel, hello); },
              launch_.TakeSocket()) {
        const auto context = CCorvelCtx::Inst();
        InstallPathGate(*context);
        context->RegisterAreaDevFactory(std::make_shared<tarn::CFileAreaDevFactory>());
        context->RegisterAreaDevFactory(std::make_shared<item_factory_t>());
        context->RegisterAreaDevFactory(std::make_shared<batch::batch_factory_t>());
    }

    ~impl_t() = default;
    impl_t(const impl_t&) = delete;
    impl_t& operator=(const impl_t&) = delete;

    net::listener_t& Listener() { return listener_; }
    const launch_t& Launch() const { return launch_; }

  private:
    void Serve(const std::shared_ptr<net::session_channel_t>& channel, const net::client_hello_t& hello) const {
        if (hello.service == net::EService::eQuery) {
            query::RunQuerySession(channel, queries_);
        } else if (hello.service == net::EService::eSend) {
            send::RunSendSession(channel, hello.transportVersion, root_);
        } else {
            net::RunReceiveSession(channel, hello.transportVersion);
        }
    }

    net::listener_options_t ListenerOptions(serve_options_t& options) const {
        net::listener_options_t result;
        result.endpoint = options.endpoint;
        result.services = {net::EService::eSession, net::EService::eQuery, net::EService::eSend};
        result.maxSessions = options.maxSessions;
        result.idleTimeout = options.idleTimeout;
        result.threadScope = [receiver = receiver_] { return std::make_shared<peer_scope_t>(receiver); };
        result.onSessionEnd = std::move(options.onSessionEnd);
        return result;
    }

    launch_t launch_;
    std::shared_ptr<const confined_root_t> root_;
    std::shared_ptr<staging_t> staging_;
    std::shared_ptr<IItemReceiver> receiver_;
    query::query_host_t queries_;
    net::listener_t listener_;
};

server_t::server_t(serve_options_t options) : impl_(std::make_unique<impl_t>(std::move(options))) {}

server_t::~server_t() = default;

net::endpoint_t server_t::GetEndpoint() const {
    return impl_->Listener().GetEndpoint();
}

const std::optional<confinement_t>& server_t::GetConfinement() const {
    return impl_->Launch().GetConfinement();
}

void server_t::Run(const std::stop_token& stop) {
    impl_->Listener().Run(stop);
}

}  // namespace agent::serve
