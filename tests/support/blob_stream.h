#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "tests/support/wire_text.h"

namespace tests {

/// The payload of a blob file, put together by hand. An empty path keeps that of the command before; lengths may be
/// given that are not true.
class blob_stream_t {
  public:
    blob_stream_t& Command(std::uint32_t type, std::string_view path, std::string_view body,
                           std::optional<std::uint32_t> totalLength = std::nullopt) {
        const std::size_t length = 10 + path.size() + body.size();
        bytes_.U32(totalLength.value_or(static_cast<std::uint32_t>(length)));
        bytes_.U32(type).U16(static_cast<std::uint16_t>(path.size())).Raw(path).Raw(body);
        return *this;
    }
    blob_stream_t& CreateDir(std::string_view path, bool overwrite) {
        return Command(1, path, std::string(1, overwrite ? '\1' : '\0'));
    }
    blob_stream_t& CreateFile(std::string_view path, bool overwrite) {
        return Command(2, path, std::string(1, overwrite ? '\1' : '\0'));
    }
    blob_stream_t& Write(std::string_view path, std::uint64_t offset, std::string_view data,
                         std::optional<std::uint32_t> length = std::nullopt) {
        const auto announced = length.value_or(static_cast<std::uint32_t>(data.size()));
        return Command(3, path, wire_text_t().U64(offset).U32(announced).Raw(data).Bytes());
    }
    blob_stream_t& Metadata(std::string_view path, std::string_view info,
                            std::optional<std::uint32_t> length = std::nullopt) {
        const auto announced = length.value_or(static_cast<std::uint32_t>(info.size()));
        return Command(4, path, wire_text_t().U32(announced).Raw(info).Bytes());
    }

    const std::string& Bytes() const noexcept { return bytes_.Bytes(); }

  private:
    wire_text_t bytes_;
};

}  // namespace tests
