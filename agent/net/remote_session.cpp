#include "agent/net/remote_session.h"

#include "brannock/transmission/transmission_cfg.h"
#include "mirrowen/compat/compatibility_info.h"

namespace agent::net {

namespace {

constexpr std::uint32_t kEndOfSession = 2;

}  // namespace

remote_session_t::remote_session_t(const endpoint_t& endpoint, const remote_options_t& options)
    : connection_(OpenConnection(endpoint, EService::eSession, options)),
      client_(tarn::file_upload_cli_t::Create(connection_.channel, brannock::transmission::kTransportVersion,
                                              compat::SCompatibilityInfo{})) {}

remote_session_t::~remote_session_t() = default;

void remote_session_t::End() {
    client_->WriteU32(kEndOfSession);
    client_->Flush();
}

}  // namespace agent::net
