#pragma once

#include <memory>

#include "agent/net/connection.h"
#include "tarn/upload/file_upload_cli.h"

namespace agent::net {

/// The sending end of an upload session with a receiving agent. One thread drives it.
class remote_session_t {
  public:
    /// Connects and opens a session. Throws `exc::CRuntimeExc` "Failed to open a session with [%1]." with the reason as
    /// cause; a refusal's reason is the text of the far end.
    remote_session_t(const endpoint_t& endpoint, const remote_options_t& options);
    remote_session_t(const remote_session_t&) = delete;
    remote_session_t& operator=(const remote_session_t&) = delete;
    /// Closes the connection; the far end takes a session that was not ended as cut off.
    ~remote_session_t();

    /// The client that sends items over this session. After a failed item the session is of no further use.
    tarn::file_upload_cli_t& Client() noexcept { return *client_; }

    /// What the far end allows.
    const server_hello_t& Limits() const noexcept { return connection_.limits; }

    /// Tells the far end that the session is over.
    void End();

  private:
    connection_t connection_;
    std::shared_ptr<tarn::file_upload_cli_t> client_;
};

}  // namespace agent::net
