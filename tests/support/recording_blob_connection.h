#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "tarn/blobfs/blob_fs_connnection.h"
#include "tarn/blobfs/lz4.h"
#include "tests/support/temp_dir.h"

namespace tests {

/// Keeps the names and the payloads of the blob files that it hears of. The files lie in a folder of its own.
class recording_blob_connection_t : public tarn::blobfs::CBlobFsConnnection {
  public:
    recording_blob_connection_t() : recording_blob_connection_t("", "/target/temp", "extra") {}

    /// Files go to `folder` below the own one, which need not exist.
    recording_blob_connection_t(std::string_view folder, std::string target, std::string extra)
        : CBlobFsConnnection("", std::move(target), std::move(extra)) {
        localTempFolder_ = folder.empty() ? dir.path() : dir / folder;
    }

    void OnBlobFileCreated(const std::string& name) override {
        names.push_back(name);
        const auto payload = tarn::blobfs::CLz4::decompressFromFile(localTempFolder_ + "/" + name);
        payloads.emplace_back(payload->begin(), payload->end());
        if (onCreated) {
            onCreated();
        }
    }

    void SetPrefix(std::string prefix) { prefix_ = std::move(prefix); }

    temp_dir_t dir;
    std::vector<std::string> names;
    std::vector<std::string> payloads;
    std::function<void()> onCreated;  ///< the last thing that happens in a call
};

/// The lowest `width` bytes of a number, the least significant one first.
inline std::string LittleEndian(std::uint64_t value, int width) {
    std::string bytes;
    for (int i = 0; i != width; ++i) {
        bytes += static_cast<char>(value >> 8 * i & 0xFF);
    }
    return bytes;
}

/// A command as it stands in a payload.
inline std::string BlobCommand(std::uint32_t type, std::string_view path, std::string_view body) {
    return LittleEndian(10 + path.size() + body.size(), 4) + LittleEndian(type, 4) + LittleEndian(path.size(), 2) +
           std::string(path) + std::string(body);
}

/// A write command.
inline std::string BlobWrite(std::string_view path, std::uint64_t offset, std::string_view data) {
    return BlobCommand(3, path, LittleEndian(offset, 8) + LittleEndian(data.size(), 4) + std::string(data));
}

}  // namespace tests
