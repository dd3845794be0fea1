#include "agent/net/preamble.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "mirrowen/cnt/array.h"
#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/io/mem_dev.h"
#include "tests/support/format_example.h"

namespace agent::net {
namespace {

using memory_t = io::mem_dev_tt<cnt::array_t<char>>;

std::string Bytes(const memory_t& memory) {
    return {memory.GetBuffer()->begin(), memory.GetBuffer()->end()};
}

std::shared_ptr<memory_t> Memory(const std::string& bytes) {
    return std::make_shared<memory_t>(std::make_shared<cnt::array_t<char>>(bytes.begin(), bytes.end()));
}

client_hello_t SampleClient() {
    client_hello_t hello;
    hello.transportVersion = 1;
    return hello;
}

server_hello_t SampleServer() {
    server_hello_t hello;
    hello.status = EStatus::eTooManySessions;
    hello.sessionId.fill(0xA1);
    hello.key.fill(0xB2);
    hello.transportVersion = 1;
    hello.maxBlockSize = 16 << 20;
    hello.maxStreams = 1;
    hello.idleSeconds = 120;
    hello.text = "Full";
    return hello;
}

std::string ClientBytes() {
    return tests::FormatExample("Preamble", "docs/protocol.md");
}

std::string ServerBytes() {
    return tests::FormatExample("Answer to the preamble", "docs/protocol.md");
}

TEST(Preamble, ClientHelloHasItsLayout) {
    const auto memory = std::make_shared<memory_t>();
    io::binary_stream_tt stream(memory);
    WriteClientHello(stream, SampleClient());
    EXPECT_EQ(Bytes(*memory), ClientBytes());
    EXPECT_EQ(Bytes(*memory).size(), 72u);
}

TEST(Preamble, ServerHelloHasItsLayout) {
    const auto memory = std::make_shared<memory_t>();
    io::binary_stream_tt stream(memory);
    WriteServerHello(stream, SampleServer());
    EXPECT_EQ(Bytes(*memory), ServerBytes());
    EXPECT_EQ(Bytes(*memory).size(), 88u + 4u);
}

TEST(Preamble, HellosAreReadBack) {
    io::binary_stream_tt client(Memory(ClientBytes()));
    EXPECT_EQ(ReadClientHello(client), SampleClient());
    io::binary_stream_tt server(Memory(ServerBytes()));
    EXPECT_EQ(ReadServerHello(server), SampleServer());
}

TEST(Preamble, HelloCutAnywhereIsAShortRead) {
    for (std::size_t size = 0; size < ClientBytes().size(); ++size) {
        io::binary_stream_tt stream(Memory(ClientBytes().substr(0, size)));
        EXPECT_THROW(ReadClientHello(stream), exc::CRuntimeExc) << size;
    }
    for (std::size_t size = 0; size < ServerBytes().size(); ++size) {
        io::binary_stream_tt stream(Memory(ServerBytes().substr(0, size)));
        EXPECT_THROW(ReadServerHello(stream), exc::CRuntimeExc) << size;
    }
}

TEST(Preamble, AnotherProtocolIsNamed) {
    for (const bool client : {true, false}) {
        io::binary_stream_tt stream(Memory("GET / HTTP/1.1\r\nHost: example\r\n\r\n" + std::string(100, 'x')));
        try {
            client ? static_cast<void>(ReadClientHello(stream)) : static_cast<void>(ReadServerHello(stream));
            FAIL();
        } catch (const exc::CRuntimeExc& error) {
            EXPECT_EQ(error.Message(), "The peer does not speak this protocol.");
        }
    }
}

TEST(Preamble, LongTextOfTheServerIsCutWhenSentAndRefusedWhenReceived) {
    const auto memory = std::make_shared<memory_t>();
    io::binary_stream_tt stream(memory);
    server_hello_t hello = SampleServer();
    hello.text.assign(kMaxHelloText + 1, 'x');
    WriteServerHello(stream, hello);
    EXPECT_EQ(Bytes(*memory).size(), 88u + kMaxHelloText);

    std::string lying = ServerBytes();
    lying.replace(84, 4, "\xff\xff\xff\xff");
    io::binary_stream_tt reader(Memory(lying));
    EXPECT_THROW(ReadServerHello(reader), exc::CRuntimeExc);
}

}  // namespace
}  // namespace agent::net
