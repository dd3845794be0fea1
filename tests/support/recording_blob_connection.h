#pragma once

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

}  // namespace tests
