#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "mirrowen/io/block/buf_transform.h"

/// The block stream's frames. docs/protocol.md ("Block stream") gives the layout with examples.
namespace brannock::transmission {

enum class EFrameType : std::uint16_t {
    // towards the receiver
    eData = 1,
    eZero = 2,
    eEnd = 3,
    eAbort = 4,
    // either way
    eBusy = 5,
    // towards the sender
    eCredit = 6,
    eStatus = 7,
};

inline constexpr std::size_t kFrameHeaderSize = 80;
inline constexpr std::uint32_t kFrameMagic = 0x4B4C4254;               ///< "TBLK"
inline constexpr std::uint16_t kFrameEncrypted = 1;                    ///< the one flag: the payload is encrypted
inline constexpr std::uint32_t kMaxZeroRun = std::uint32_t{64} << 20;  ///< bytes that one ZERO frame may stand for

struct frame_header_t {
    EFrameType type = EFrameType::eBusy;
    std::uint16_t flags = 0;
    std::uint32_t payloadLength = 0;
    std::uint32_t rawLength = 0;  ///< bytes of the item that the frame stands for
    std::uint64_t item = 0;
    std::uint64_t offset = 0;
    std::uint64_t block = 0;
    io::block::EBufTransformType transform = io::block::EBufTransformType::eNone;
    std::array<std::byte, 12> nonce{};
    std::array<std::byte, 16> tag{};

    friend bool operator==(const frame_header_t&, const frame_header_t&) = default;
};

using frame_bytes_t = std::array<std::byte, kFrameHeaderSize>;

/// The header as it travels, its checksum over itself and `payload` included. `payloadLength` is taken from `payload`.
frame_bytes_t EncodeFrameHeader(const frame_header_t& header, std::span<const std::byte> payload);

/// The header in `bytes`. Throws `exc::CRuntimeExc` "Broken block stream: %1." for another magic, an unknown type and
/// reserved bytes in use; the checksum needs the payload, see GetFrameChecksum.
frame_header_t DecodeFrameHeader(const frame_bytes_t& bytes);

/// The checksum that the header claims.
std::uint32_t GetFrameChecksum(const frame_bytes_t& bytes) noexcept;

/// The checksum of the header's bytes with the checksum's own field zero; `util::crc32c` goes on with the payload.
std::uint32_t ComputeHeaderChecksum(const frame_bytes_t& bytes) noexcept;

}  // namespace brannock::transmission
