#pragma once

namespace io {

/// Bandwidth limits shared by every backend that is created with one configuration. This library only passes it on; the
/// cloud clients consume it.
class CNetworkTrottlingCtx {};

}  // namespace io
