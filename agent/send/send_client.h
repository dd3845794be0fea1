#pragma once

#include <memory>
#include <string>

#include "agent/net/endpoint.h"
#include "agent/net/remote_options.h"
#include "agent/send/remote_file.h"
#include "agent/send/send_request.h"

namespace agent::send {

/// Reads items of another agent, one after the other over one connection, which is opened when it is needed. One
/// thread, but an opened item may be read on another one.
class send_client_t {
  public:
    explicit send_client_t(net::endpoint_t endpoint, net::remote_options_t options);
    /// Ends the connection unless an item is being read; that one goes on.
    ~send_client_t();
    send_client_t(const send_client_t&) = delete;
    send_client_t& operator=(const send_client_t&) = delete;

    /// Asks for an item; returns when it was announced. Of a directory or a link nothing more comes. Throws
    /// `exc::CRuntimeExc` "Failed to read [%1]." and "Failed to open a session with [%1].", each with its cause. While
    /// another item is being read a further connection is opened.
    std::shared_ptr<remote_file_t> Open(const send_request_t& request);

  private:
    class idle_t;

    net::connection_t Connection();
    std::string Shown(const std::string& path) const;

    const net::endpoint_t endpoint_;
    const net::remote_options_t options_;
    const std::shared_ptr<idle_t> idle_;
};

}  // namespace agent::send
