#include "agent/net/connection.h"

#include <utility>

#include "agent/net/socket.h"
#include "brannock/transmission/transmission_cfg.h"
#include "mirrowen/exc/regen.h"
#include "mirrowen/exc/runtime_exc.h"

namespace agent::net {

namespace {

server_hello_t ask_for(EService service, io::binary_stream_tt& stream) {
    client_hello_t hello;
    hello.service = service;
    hello.transportVersion = brannock::transmission::kTransportVersion;
    WriteClientHello(stream, hello);
    stream.Flush();
    server_hello_t answer = ReadServerHello(stream);
    if (answer.status != EStatus::eOk) {
        throw exc::CRuntimeExc("The receiving agent refused the connection: %1", answer.text);
    }
    return answer;
}

}  // namespace

connection_t OpenConnection(const endpoint_t& endpoint, EService service, const remote_options_t& options,
                            thread_scope_t scope) {
    const std::string name = ToString(endpoint);
    try {
        const auto deadline = synch::deadline_t::After(options.connectTimeout);
        auto channel = std::make_shared<session_channel_t>(Connect(endpoint, {deadline, options.stop}), name,
                                                           io::net::socket_limits_t{options.idleTimeout, options.stop},
                                                           options.minimumRate, std::move(scope));
        channel->SetDeadline(deadline);
        io::binary_stream_tt stream(channel);
        server_hello_t limits = ask_for(service, stream);
        channel->SetDeadline(synch::deadline_t::Never());
        return {std::move(channel), std::move(limits)};
    } catch (const std::exception&) {
        exc::RegenExc("Failed to open a session with [%1].", name);
    }
}

}  // namespace agent::net
