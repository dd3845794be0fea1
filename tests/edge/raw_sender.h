#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "agent/token/item_token.h"
#include "brannock/transmission/item_digest.h"
#include "tests/edge/raw_frame.h"
#include "tests/edge/raw_session.h"
#include "tests/support/upload_kit.h"
#include "tests/support/wire_text.h"

/// What a server of the send service says, piece by piece.
namespace tests {

/// The file "file" of so many bytes.
inline agent::item_t FileItem(std::uint64_t size) {
    agent::item_t item;
    item.path = "file";
    item.info.type = util::EFileType::eRegular;
    item.info.size = size;
    item.info.mode = 0644;
    return item;
}

/// Command 5 with the item.
inline std::string Announcement(const agent::item_t& item, std::uint64_t size, std::uint32_t incremental = 0,
                                std::uint32_t blockSize = 4096) {
    const std::string token =
        BytesWritten([&](io::binary_stream_tt& stream) { agent::item_token_t(item).Serial(stream); });
    return wire_text_t()
        .U32(5)
        .String("agent-item")
        .Raw(token)
        .U64(size)
        .U32(incremental)
        .U32(0)
        .U32(blockSize)
        .Bytes();
}

inline std::string EndFrame(const std::string& content, std::uint64_t blocks) {
    brannock::transmission::end_record_t end;
    end.bytes = content.size();
    end.blocks = blocks;
    brannock::transmission::item_digest_t digest;
    digest.Add(std::as_bytes(std::span(content)));
    end.digest = digest.Get();
    const auto payload = brannock::transmission::EncodeEnd(end);
    return Frame({.type = EFrameType::eEnd}, {reinterpret_cast<const char*>(payload.data()), payload.size()});
}

inline const std::string kAccepted = wire_text_t().U32(0).U32(0).Bytes();     // the acknowledgement, no notes
inline const std::string kEndOfUpload = wire_text_t().U32(2).U32(0).Bytes();  // the file did not change

}  // namespace tests
