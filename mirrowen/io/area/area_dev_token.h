#pragma once

#include <string>

#include "mirrowen/export.h"
#include "mirrowen/io/binary_stream.h"

namespace io::area {

/// Names a place that areas can be written to or read from; small, serialisable, immutable. Shared between threads.
class MIRROWEN_API IAreaDevToken {
  public:
    virtual ~IAreaDevToken();
    /// The type word that selects the factory ("file"). It travels outside the token's own serialised form.
    virtual std::string GetType() = 0;
    /// The place as it appears in logs.
    virtual std::string Path4Log() = 0;
    virtual void Serial(binary_stream_tt& stream) const = 0;
};

}  // namespace io::area
