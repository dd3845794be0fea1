#include "tarn/tdatafs/tdatafs_path.h"

#include <string_view>
#include <vector>

#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/util/str.h"

namespace tarn::tdatafs {
namespace {

constexpr std::string_view kPrefixLin = "tdatafs://";
constexpr std::string_view kPrefixWin = "tdatafs:\\\\";
static_assert(kPrefixLin.size() == kPrefixWin.size(), "parsing drops either of them by its length");

}  // namespace

const std::string tdatafs_path_t::s_tdatafsPrefixLin{kPrefixLin};
const std::string tdatafs_path_t::s_tdatafsPrefixWin{kPrefixWin};
const std::string tdatafs_path_t::s_delimeter{"|"};

tdatafs_path_t::tdatafs_path_t(const std::string& name, std::uint64_t first, std::uint64_t second)
    : name_(name), first_(first), second_(second) {}

tdatafs_path_t::tdatafs_path_t(const std::string& path) {
    if (!IsTapeDataFsPath(path)) {
        throw exc::CRuntimeExc("'%1' is not a valid tdatafs path", path);
    }
    const std::vector<std::string> fields =
        util::str_tokenize(std::string_view(path).substr(kPrefixLin.size()), s_delimeter);
    name_ = fields[0];
    if (fields.size() >= 2) {
        first_ = util::str_to_streamsize(fields[1]);
    }
    if (fields.size() >= 3) {
        second_ = util::str_to_streamsize(fields[2]);
    }
}

bool tdatafs_path_t::IsTapeDataFsPath(const std::string& path) {
    // The literals, not the exported strings: dispatching may begin before those are made.
    return util::str_is_starts_with(path, kPrefixLin) || util::str_is_starts_with(path, kPrefixWin);
}

std::string tdatafs_path_t::ToString() const {
    std::string text = s_tdatafsPrefixLin + name_ + s_delimeter + util::str_from_streamsize(first_);
    if (second_ != kAbsent) {
        text += s_delimeter + util::str_from_streamsize(second_);
    }
    return text;
}

}  // namespace tarn::tdatafs
