#include "brannock/transmission/session.h"

namespace brannock::transmission {

ICancellable::~ICancellable() = default;
ISession::~ISession() = default;

}  // namespace brannock::transmission
