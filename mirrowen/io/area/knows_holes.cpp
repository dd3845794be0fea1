#include "mirrowen/io/area/knows_holes.h"

namespace io::area {

IKnowsHoles::~IKnowsHoles() = default;

bool KnowsHoles(const area_read_dev_t& source) noexcept {
    const auto* const answer = dynamic_cast<const IKnowsHoles*>(&source);
    return answer != nullptr && answer->KnowsHoles();
}

}  // namespace io::area
