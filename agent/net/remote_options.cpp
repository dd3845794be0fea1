#include "agent/net/remote_options.h"

#include "mirrowen/exc/runtime_exc.h"

namespace agent::net {

void remote_options_t::ThrowIfStopped() const {
    if (stop.stop_requested()) {
        throw exc::CRuntimeExc("The work was cancelled.");
    }
}

}  // namespace agent::net
