#include "tarn/memfs/memfs_path.h"

#include <string_view>

#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/util/str.h"

namespace tarn::memfs {
namespace {

constexpr std::string_view kPrefix = "MemFs://";

}  // namespace

memfs_path_t::memfs_path_t(const std::string& path) {
    Parse(path);
}

std::string memfs_path_t::GetMemFsPrefix() {
    return std::string(kPrefix);
}

bool memfs_path_t::IsMemFsPath(const std::string& path) {
    return path.size() >= kPrefix.size() &&
           util::str_caseicmp(std::string_view(path).substr(0, kPrefix.size()), kPrefix);
}

void memfs_path_t::Parse(const std::string& path) {
    if (!IsMemFsPath(path)) {
        // The placeholder stays unfilled on purpose: this text is known as it is.
        throw exc::CRuntimeExc("Invalid MemFS path: [%1].");
    }
    slotName_ = path.substr(kPrefix.size());
}

std::string memfs_path_t::GetSlotName() const {
    return slotName_;
}

void memfs_path_t::SetSlotName(const std::string& name) {
    slotName_ = name;
}

std::string memfs_path_t::ToString() const {
    return GetMemFsPrefix() + slotName_;
}

}  // namespace tarn::memfs
