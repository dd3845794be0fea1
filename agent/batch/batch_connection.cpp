#include "agent/batch/batch_connection.h"

#include <utility>

namespace agent::batch {

batch_connection_t::batch_connection_t(const std::string& folder) : CBlobFsConnnection(folder, "", "") {}

batch_connection_t::~batch_connection_t() = default;

void batch_connection_t::OnBlobFileCreated(const std::string& name) {
    name_ = name;
}

std::string batch_connection_t::TakePath() {
    const std::string name = std::exchange(name_, {});
    return name.empty() ? name : GetLocalTempFolder() + "/" + name;
}

}  // namespace agent::batch
