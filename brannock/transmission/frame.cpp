#include "brannock/transmission/frame.h"

#include <algorithm>
#include <string>

#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/io/little_endian.h"
#include "mirrowen/util/crc32c.h"
#include "mirrowen/util/str_format.h"

namespace brannock::transmission {

namespace {

// Where the fields stand; docs/protocol.md has the same table.
constexpr std::size_t kMagicAt = 0;
constexpr std::size_t kTypeAt = 4;
constexpr std::size_t kFlagsAt = 6;
constexpr std::size_t kPayloadLengthAt = 8;
constexpr std::size_t kRawLengthAt = 12;
constexpr std::size_t kItemAt = 16;
constexpr std::size_t kOffsetAt = 24;
constexpr std::size_t kBlockAt = 32;
constexpr std::size_t kTransformAt = 40;
constexpr std::size_t kNonceAt = 44;
constexpr std::size_t kTagAt = 56;
constexpr std::size_t kReservedAt = 72;
constexpr std::size_t kChecksumAt = 76;
static_assert(kChecksumAt + sizeof(std::uint32_t) == kFrameHeaderSize);
static_assert(kFrameHeaderSize % 8 == 0);

template <class T>
T Get(const frame_bytes_t& bytes, std::size_t at) noexcept {
    return io::DecodeLittleEndian<T>(bytes.data() + at);
}

[[noreturn]] void Refuse(const std::string& reason) {
    throw exc::CRuntimeExc("Broken block stream: %1.", reason);
}

}  // namespace

frame_bytes_t EncodeFrameHeader(const frame_header_t& header, std::span<const std::byte> payload) {
    frame_bytes_t bytes{};
    const auto put = [&bytes](auto value, std::size_t at) { io::EncodeLittleEndian(value, bytes.data() + at); };
    put(kFrameMagic, kMagicAt);
    put(static_cast<std::uint16_t>(header.type), kTypeAt);
    put(header.flags, kFlagsAt);
    put(static_cast<std::uint32_t>(payload.size()), kPayloadLengthAt);
    put(header.rawLength, kRawLengthAt);
    put(header.item, kItemAt);
    put(header.offset, kOffsetAt);
    put(header.block, kBlockAt);
    put(static_cast<std::uint32_t>(header.transform), kTransformAt);
    std::ranges::copy(header.nonce, bytes.begin() + kNonceAt);
    std::ranges::copy(header.tag, bytes.begin() + kTagAt);
    put(util::crc32c(ComputeHeaderChecksum(bytes), payload.data(), payload.size()), kChecksumAt);
    return bytes;
}

frame_header_t DecodeFrameHeader(const frame_bytes_t& bytes) {
    if (const auto magic = Get<std::uint32_t>(bytes, kMagicAt); magic != kFrameMagic) {
        Refuse(util::str_format("a frame starts with [%1]", magic));
    }
    const auto type = Get<std::uint16_t>(bytes, kTypeAt);
    if (type < static_cast<std::uint16_t>(EFrameType::eData) ||
        type > static_cast<std::uint16_t>(EFrameType::eStatus)) {
        Refuse(util::str_format("unknown frame type [%1]", type));
    }
    if (Get<std::uint32_t>(bytes, kReservedAt) != 0) {
        Refuse("reserved bytes are in use");
    }
    frame_header_t header;
    header.type = static_cast<EFrameType>(type);
    header.flags = Get<std::uint16_t>(bytes, kFlagsAt);
    header.payloadLength = Get<std::uint32_t>(bytes, kPayloadLengthAt);
    header.rawLength = Get<std::uint32_t>(bytes, kRawLengthAt);
    header.item = Get<std::uint64_t>(bytes, kItemAt);
    header.offset = Get<std::uint64_t>(bytes, kOffsetAt);
    header.block = Get<std::uint64_t>(bytes, kBlockAt);
    header.transform = static_cast<io::block::EBufTransformType>(Get<std::uint32_t>(bytes, kTransformAt));
    std::copy_n(bytes.begin() + kNonceAt, header.nonce.size(), header.nonce.begin());
    std::copy_n(bytes.begin() + kTagAt, header.tag.size(), header.tag.begin());
    return header;
}

std::uint32_t GetFrameChecksum(const frame_bytes_t& bytes) noexcept {
    return Get<std::uint32_t>(bytes, kChecksumAt);
}

std::uint32_t ComputeHeaderChecksum(const frame_bytes_t& bytes) noexcept {
    frame_bytes_t blank = bytes;
    io::EncodeLittleEndian(std::uint32_t{0}, blank.data() + kChecksumAt);
    return util::crc32c(0, blank.data(), blank.size());
}

}  // namespace brannock::transmission
