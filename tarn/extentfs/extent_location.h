#pragma once

#include "mirrowen/guid/guid.h"
#include "tarn/export.h"

namespace tarn::extentfs {

/// Where an extent path leads: a remote location, perhaps an archive in it, or this machine. A value.
struct TARN_API SExtentLocation {
    guid::guid_t locationId;
    guid::guid_t archId;  ///< empty where the path names no archive

    /// Whether both identifiers are empty.
    bool IsLocal() const noexcept;

    bool operator==(const SExtentLocation& other) const noexcept;
    bool operator!=(const SExtentLocation& other) const noexcept;
    /// By `locationId`, then by `archId`; empty identifiers come first.
    bool operator<(const SExtentLocation& other) const noexcept;
};

}  // namespace tarn::extentfs
