#pragma once

#include <string>
#include <string_view>

#include "tests/support/raw_peer.h"
#include "tests/support/wire_text.h"

namespace tests {

/// What a client says first, for a service (1 is the upload dialogue).
inline std::string ClientHello(std::uint32_t service = 1, std::uint32_t version = 1, std::uint32_t transport = 1) {
    return wire_text_t().Raw("TARNCLI\n").U32(version).U32(service).U32(transport).U32(0).Zeroes(48).Bytes();
}

/// What a server says first, with its status (0 grants the session) and a text.
inline std::string ServerHello(std::uint32_t status = 0, std::string_view text = {}, std::uint32_t blocks = 1U << 24) {
    return wire_text_t()
        .Raw("TARNSRV\n")
        .U32(status)
        .U32(1)
        .Zeroes(48)
        .U32(1)
        .U32(blocks)
        .U32(1)
        .U32(120)
        .U32(0)
        .String(text)
        .Bytes();
}

inline constexpr std::size_t kClientHelloSize = 72;
inline constexpr std::size_t kServerHelloSize = 88;

/// An acknowledgement as a server sends it.
struct ack_t {
    std::uint32_t kind = 0xFFFFFFFF;  ///< that nothing came
    std::string text;
};

/// A session spoken by hand, from the client's end.
class raw_session_t {
  public:
    /// Connects and is granted a session.
    explicit raw_session_t(std::uint16_t port) : peer_(port) {
        peer_.Send(ClientHello());
        hello_ = peer_.Receive(kServerHelloSize);
    }

    const std::string& Hello() const { return hello_; }
    raw_peer_t& Peer() { return peer_; }

    bool Send(const wire_text_t& message) { return peer_.Send(message.Bytes()); }
    /// Sends the message and tells the server that no more will come.
    void SendLast(const wire_text_t& message) {
        Send(message);
        peer_.CloseWrite();
    }
    ack_t ReceiveAck() {
        ack_t ack;
        const std::string kind = peer_.Receive(4);
        if (kind.size() == 4) {
            ack.kind = U32At(kind, 0);
            ack.text = ack.kind == 0 ? "" : ReceiveString();
        }
        return ack;
    }
    std::uint32_t ReceiveU32() {
        const std::string bytes = peer_.Receive(4);
        return bytes.size() == 4 ? U32At(bytes, 0) : 0xFFFFFFFF;
    }
    std::string ReceiveString() { return peer_.Receive(ReceiveU32()); }

  private:
    raw_peer_t peer_;
    std::string hello_;
};

/// The file info of an item without attributes.
inline std::string NoFileInfo() {
    return wire_text_t().Raw("tFI1").Zeroes(88).Bytes();
}

/// The token of an agent's item.
inline std::string ItemToken(std::uint32_t kind, std::string_view path, std::string_view second = {}) {
    return wire_text_t()
        .U32(2)
        .U32(kind)
        .Zeroes(16)
        .String(path)
        .String(second)
        .U64(0)  // start offset
        .U64(0)  // entry
        .U32(0)  // flags
        .Raw(NoFileInfo())
        .Bytes();
}

/// The message of command 5 for an agent's item of so many bytes.
inline wire_text_t ItemMessage(std::uint32_t kind, std::string_view path, std::uint64_t size,
                               std::string_view second = {}, std::uint32_t overwrite = 1,
                               std::uint32_t blockSize = 4096) {
    return wire_text_t()
        .U32(5)
        .String("agent-item")
        .Raw(ItemToken(kind, path, second))
        .U64(size)
        .U32(0)
        .U32(overwrite)
        .U32(blockSize);
}

/// The client's proposal of how the network is used.
inline std::string NetworkConfiguration(std::uint32_t streams = 1, std::uint32_t window = 8) {
    return wire_text_t().Raw("TNC1").U32(8).U32(streams).U32(window).Bytes();
}

}  // namespace tests
