#include "agent/batch/batch_folder.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "mirrowen/posix/errno_exc.h"

namespace agent::batch {

namespace {

std::string usual_place() {
    const char* const wanted = std::getenv("TMPDIR");
    return wanted != nullptr && *wanted != '\0' ? wanted : "/tmp";
}

}  // namespace

batch_folder_t::batch_folder_t() : path_(usual_place() + "/tarn-batch-XXXXXX") {
    if (::mkdtemp(path_.data()) == nullptr) {  // with mode 0700
        throw posix::errno_exc_t("Failed to create a temporary folder [%1]", path_, errno);
    }
}

batch_folder_t::~batch_folder_t() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

}  // namespace agent::batch
