#include "tarn/extentfs/extent_fs_path.h"

#include "tarn/extentfs/extent_fs_path_parser.h"

namespace tarn::extentfs {

SExtentFsPath::SExtentFsPath(const SExtentLocation& where, const std::string& what) : location(where), path(what) {}

std::string SExtentFsPath::Serialize() const {
    return SExtentFsPathParser::Serial(*this);
}

SExtentFsPath SExtentFsPath::Unserial(const std::string& text) {
    return SExtentFsPathParser::Unserial(text);
}

}  // namespace tarn::extentfs
