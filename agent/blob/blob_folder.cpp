#include "agent/blob/blob_folder.h"

#include "mirrowen/util/fs.h"

namespace agent::blob {

blob_folder_t::blob_folder_t(const std::string& folder) : CBlobFsConnnection(folder, "", "") {}

blob_folder_t::~blob_folder_t() = default;

void blob_folder_t::OnBlobFileCreated(const std::string& name) {
    paths_.push_back(util::fs_merge_path(GetLocalTempFolder(), name));
}

}  // namespace agent::blob
