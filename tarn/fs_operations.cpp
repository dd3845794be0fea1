#include "tarn/fs_operations.h"

#include "mirrowen/exc/not_impl_exc.h"
#include "tarn/fs_log.h"

namespace tarn {

fs_operations_t::~fs_operations_t() = default;

std::vector<SDirectoryEntry> fs_operations_t::EnumerateDirectoryContent(const std::string& /*path*/) {
    fs_log.tr("EnumerateDirectoryContent");
    throw exc::CNotImplExc("fs_operations_t", "EnumerateDirectoryContent");
}

}  // namespace tarn
