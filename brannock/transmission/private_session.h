#pragma once

#include <memory>

#include "brannock/transmission/session.h"
#include "mirrowen/io/io_dev.h"

namespace brannock::transmission {

/// The session of a channel device, or one made for the call: a thread a piece of work, no stop request, item 0, 120 s
/// of silence, 4 KiB a second. `device` may be empty (a local copy). The result holds the device.
std::shared_ptr<ISession> GetSessionOf(const std::shared_ptr<io::io_dev_t>& device);

}  // namespace brannock::transmission
