#include "agent/net/preamble.h"

#include <string_view>

#include "mirrowen/exc/runtime_exc.h"

namespace agent::net {

namespace {

constexpr std::string_view kClientMagic = "TARNCLI\n";
constexpr std::string_view kServerMagic = "TARNSRV\n";
static_assert(kClientMagic.size() == 8 && kServerMagic.size() == 8);

void write_magic(io::binary_stream_tt& stream, std::string_view magic) {
    stream.WriteExact(magic.data(), magic.size());
}

void expect_magic(io::binary_stream_tt& stream, std::string_view magic) {
    std::array<char, 8> received{};
    stream.ReadExact(received.data(), received.size());
    if (std::string_view(received.data(), received.size()) != magic) {
        throw exc::CRuntimeExc("The peer does not speak this protocol.");
    }
}

template <std::size_t N>
void write_bytes(io::binary_stream_tt& stream, const std::array<std::uint8_t, N>& bytes) {
    stream.WriteExact(bytes.data(), N);
}

template <std::size_t N>
void read_bytes(io::binary_stream_tt& stream, std::array<std::uint8_t, N>& bytes) {
    stream.ReadExact(bytes.data(), N);
}

}  // namespace

void WriteClientHello(io::binary_stream_tt& stream, const client_hello_t& hello) {
    write_magic(stream, kClientMagic);
    stream.WriteU32(hello.version);
    stream.WriteU32(static_cast<std::uint32_t>(hello.service));
    stream.WriteU32(hello.transportVersion);
    stream.WriteU32(hello.streamIndex);
    write_bytes(stream, hello.sessionId);
    write_bytes(stream, hello.proof);
}

client_hello_t ReadClientHello(io::binary_stream_tt& stream) {
    expect_magic(stream, kClientMagic);
    client_hello_t hello;
    hello.version = stream.ReadU32();
    hello.service = static_cast<EService>(stream.ReadU32());
    hello.transportVersion = stream.ReadU32();
    hello.streamIndex = stream.ReadU32();
    read_bytes(stream, hello.sessionId);
    read_bytes(stream, hello.proof);
    return hello;
}

void WriteServerHello(io::binary_stream_tt& stream, const server_hello_t& hello) {
    write_magic(stream, kServerMagic);
    stream.WriteU32(static_cast<std::uint32_t>(hello.status));
    stream.WriteU32(hello.version);
    write_bytes(stream, hello.sessionId);
    write_bytes(stream, hello.key);
    stream.WriteU32(hello.transportVersion);
    stream.WriteU32(hello.maxBlockSize);
    stream.WriteU32(hello.maxStreams);
    stream.WriteU32(hello.idleSeconds);
    stream.WriteU32(hello.reserved);
    stream.WriteString(std::string_view(hello.text).substr(0, kMaxHelloText));
}

server_hello_t ReadServerHello(io::binary_stream_tt& stream) {
    expect_magic(stream, kServerMagic);
    server_hello_t hello;
    hello.status = static_cast<EStatus>(stream.ReadU32());
    hello.version = stream.ReadU32();
    read_bytes(stream, hello.sessionId);
    read_bytes(stream, hello.key);
    hello.transportVersion = stream.ReadU32();
    hello.maxBlockSize = stream.ReadU32();
    hello.maxStreams = stream.ReadU32();
    hello.idleSeconds = stream.ReadU32();
    hello.reserved = stream.ReadU32();
    hello.text = stream.ReadString(kMaxHelloText);
    return hello;
}

}  // namespace agent::net
