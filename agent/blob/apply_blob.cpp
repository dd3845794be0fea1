#include "agent/blob/apply_blob.h"

#include "tarn/blobfs/blob_parser.h"

namespace agent::blob {

applied_t ApplyBlob(const std::string& path,
                    const std::function<void(const std::string& path, const std::string& text)>& tell) {
    applied_t applied;
    tarn::blobfs::BlobParser parser([&](const std::string& failed, const std::exception& error) {
        ++applied.failures;
        tell(failed, error.what());
    });
    try {
        parser.Execute(path);
    } catch (const std::exception&) {
        applied.isConsumed = applied.failures != 0;
        applied.fault = std::current_exception();
    }
    return applied;
}

}  // namespace agent::blob
