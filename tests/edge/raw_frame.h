#pragma once

#include <cstring>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

#include "brannock/transmission/frame.h"
#include "brannock/transmission/frame_payload.h"
#include "tests/support/raw_peer.h"

namespace tests {

using brannock::transmission::EFrameType;
using brannock::transmission::frame_header_t;

/// A frame as it travels.
inline std::string Frame(const frame_header_t& header, std::string_view payload = {}) {
    const auto bytes = brannock::transmission::EncodeFrameHeader(header, std::as_bytes(std::span(payload)));
    return std::string(reinterpret_cast<const char*>(bytes.data()), bytes.size()).append(payload);
}

/// A block of plain bytes.
inline std::string DataFrame(std::uint64_t block, std::uint64_t offset, std::string_view payload) {
    return Frame({.type = EFrameType::eData,
                  .rawLength = static_cast<std::uint32_t>(payload.size()),
                  .offset = offset,
                  .block = block},
                 payload);
}

inline std::string StatusFrame(const brannock::transmission::status_record_t& status) {
    const auto payload = brannock::transmission::EncodeStatus(status);
    return Frame({.type = EFrameType::eStatus}, {reinterpret_cast<const char*>(payload.data()), payload.size()});
}

/// Reads a frame, payload and all, and returns its header.
inline frame_header_t ReadFrame(raw_peer_t& peer) {
    const std::string text = peer.Receive(brannock::transmission::kFrameHeaderSize);
    if (text.size() != brannock::transmission::kFrameHeaderSize) {
        throw std::runtime_error("no frame comes");
    }
    brannock::transmission::frame_bytes_t bytes{};
    std::memcpy(bytes.data(), text.data(), text.size());
    const frame_header_t header = brannock::transmission::DecodeFrameHeader(bytes);
    peer.Receive(header.payloadLength);
    return header;
}

/// Reads frames until one of the type has come.
inline frame_header_t ReadFrame(raw_peer_t& peer, EFrameType type) {
    frame_header_t header = ReadFrame(peer);
    while (header.type != type) {
        header = ReadFrame(peer);
    }
    return header;
}

}  // namespace tests
