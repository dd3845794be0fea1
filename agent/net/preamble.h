#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "mirrowen/io/binary_stream.h"

/// The first bytes of every connection between agents: who asks for what, and whether it is granted. The layout is in
/// docs/protocol.md ("Preamble").
namespace agent::net {

/// What a connection is for. The numbers stand on the wire.
enum class EService : std::uint32_t {
    eSession = 1,  ///< an upload session: the dialogue of the file upload protocol follows
    eJoin = 2,     ///< a further stream of a session
    eQuery = 3,    ///< questions about what is there
    eSend = 4,     ///< an upload session with the roles turned round
};

/// How a server answers. The numbers stand on the wire.
enum class EStatus : std::uint32_t {
    eOk = 0,
    eUnsupportedVersion = 1,
    eUnsupportedService = 2,
    eTooManySessions = 3,
    eRefused = 4,
};

inline constexpr std::uint32_t kPreambleVersion = 1;

using session_id_t = std::array<std::uint8_t, 16>;
using session_key_t = std::array<std::uint8_t, 32>;

/// What the connecting side says: 72 bytes.
struct client_hello_t {
    std::uint32_t version = kPreambleVersion;
    EService service = EService::eSession;
    std::uint32_t transportVersion = 0;
    std::uint32_t streamIndex = 0;  ///< 0 for the first stream of a session
    session_id_t sessionId{};       ///< zeroes unless a session is joined
    session_key_t proof{};          ///< zeroes unless a session is joined

    friend bool operator==(const client_hello_t&, const client_hello_t&) = default;
};

/// What the accepting side answers: 88 bytes and a text.
struct server_hello_t {
    EStatus status = EStatus::eOk;
    std::uint32_t version = kPreambleVersion;
    session_id_t sessionId{};
    session_key_t key{};  ///< proves that a further stream belongs to the session
    std::uint32_t transportVersion = 0;
    std::uint32_t maxBlockSize = 0;  ///< bytes
    std::uint32_t maxStreams = 0;
    std::uint32_t idleSeconds = 0;  ///< the server gives a silent client up after this long
    std::uint32_t reserved = 0;
    std::string text;  ///< why the connection is refused, at most kMaxHelloText bytes; empty when it is granted

    friend bool operator==(const server_hello_t&, const server_hello_t&) = default;
};

inline constexpr std::uint32_t kMaxHelloText = 1024;

/// A stream that does not begin with the agreed magic throws `exc::CRuntimeExc` "The peer does not speak this
/// protocol.".
void WriteClientHello(io::binary_stream_tt& stream, const client_hello_t& hello);
client_hello_t ReadClientHello(io::binary_stream_tt& stream);
void WriteServerHello(io::binary_stream_tt& stream, const server_hello_t& hello);
server_hello_t ReadServerHello(io::binary_stream_tt& stream);

}  // namespace agent::net
