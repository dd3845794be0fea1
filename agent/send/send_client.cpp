#include "agent/send/send_client.h"

#include <chrono>
#include <optional>
#include <utility>

#include "agent/path/location.h"
#include "agent/staging/item_factory.h"
#include "corvel/corvel_ctx.h"
#include "mirrowen/synch/mutex.h"
#include "mirrowen/util/clock.h"

namespace agent::send {

/// The connection on which nothing is read at the moment.
class send_client_t::idle_t {
  public:
    ~idle_t() { Put({}); }

    // A connection that was given back is ended when another one has taken its place.
    void Put(std::optional<net::connection_t> connection) {
        {
            const synch::lock_t lock(mutex_);
            std::swap(connection_, connection);
            since_ = util::clock().SteadyNow();
        }
        if (connection) {
            SayEnd(*connection);
        }
    }

    // Nothing when there is none, or when the far end may have given it up.
    std::optional<net::connection_t> Take() {
        std::optional<net::connection_t> connection;
        const synch::lock_t lock(mutex_);
        std::swap(connection_, connection);
        if (connection &&
            util::clock().SteadyNow() - since_ >= std::chrono::seconds(connection->limits.idleSeconds) / 2) {
            SayEnd(*connection);
            connection.reset();
        }
        return connection;
    }

  private:
    synch::mutex_t mutex_;
    std::optional<net::connection_t> connection_ GUARDED_BY(mutex_);
    util::IClock::steady_point_t since_ GUARDED_BY(mutex_){};
};

send_client_t::send_client_t(net::endpoint_t endpoint, net::remote_options_t options)
    : endpoint_(std::move(endpoint)), options_(std::move(options)), idle_(std::make_shared<idle_t>()) {
    // The far end's tokens are read by the process's factory, which asks the receiving thread who takes them.
    CCorvelCtx::Inst()->RegisterAreaDevFactory(std::make_shared<item_factory_t>());
}

send_client_t::~send_client_t() = default;

std::shared_ptr<remote_file_t> send_client_t::Open(const send_request_t& request) {
    auto file = remote_file_t::Open(Connection(), request, Shown(request.path), options_,
                                    [idle = idle_](net::connection_t connection) { idle->Put(std::move(connection)); });
    if (file->GetAnnounced().item.kind != EItemKind::eFile) {
        file->ReadNext();
    }
    return file;
}

net::connection_t send_client_t::Connection() {
    if (auto connection = idle_->Take()) {
        return std::move(*connection);
    }
    return net::OpenConnection(endpoint_, net::EService::eSend, options_);
}

std::string send_client_t::Shown(const std::string& path) const {
    return ToString(location_t{true, endpoint_, path == kRootName ? "" : path});
}

}  // namespace agent::send
