#pragma once

#include <cstdint>

#include "mirrowen/export.h"

namespace progress {

/// Is told how far a transfer has come. Called from the thread that runs the transfer, so it must be quick; it may
/// throw to cancel the transfer.
class MIRROWEN_API progress_base_t {
  public:
    virtual ~progress_base_t();
    /// `bytes` more of the item have been processed (bytes of the file, not of the wire).
    virtual void OnProgress(std::uint64_t bytes) = 0;
};

}  // namespace progress
