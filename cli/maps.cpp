#include "cli/maps.h"

#include "tarn/flr/flr_context.h"
#include "tarn/tarn_context.h"

namespace cli {

void ApplyMaps(const std::vector<mapping_t>& maps) {
    const auto view = tarn::CTarnContext::Instance().GetFLRContext();
    for (const mapping_t& map : maps) {
        view->AddMappingRule(map.real, map.mount);
    }
}

}  // namespace cli
