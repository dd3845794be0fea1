#pragma once

#include <string>

#include "tarn/export.h"
#include "tarn/extentfs/extent_location.h"

namespace tarn::extentfs {

/// A file on this machine or in a remote location, "ExtentExFS[LOCATION,arch=ARCHIVE]PATH". A value; the text form is
/// SExtentFsPathParser's. The dispatcher does not know these paths: they are for the embedding agent.
struct TARN_API SExtentFsPath {
    SExtentFsPath(const SExtentLocation& location, const std::string& path);

    SExtentLocation location;
    std::string path;

    /// The text form; of a local path just the path, so one that begins with a remote form's prefix does not come back.
    std::string Serialize() const;
    /// Reads the text form; errors as `SExtentFsPathParser::Unserial`.
    static SExtentFsPath Unserial(const std::string& text);
};

}  // namespace tarn::extentfs
