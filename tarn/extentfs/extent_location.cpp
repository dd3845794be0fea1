#include "tarn/extentfs/extent_location.h"

#include <tuple>

namespace tarn::extentfs {

bool SExtentLocation::IsLocal() const noexcept {
    return locationId.IsEmpty() && archId.IsEmpty();
}

bool SExtentLocation::operator==(const SExtentLocation& other) const noexcept {
    return locationId == other.locationId && archId == other.archId;
}

bool SExtentLocation::operator!=(const SExtentLocation& other) const noexcept {
    return !(*this == other);
}

bool SExtentLocation::operator<(const SExtentLocation& other) const noexcept {
    return std::tie(locationId, archId) < std::tie(other.locationId, other.archId);
}

}  // namespace tarn::extentfs
