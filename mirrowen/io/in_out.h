#pragma once

#include <string_view>

#include "mirrowen/export.h"

namespace io {

/// A console: where a progress display prints. One thread at a time.
class MIRROWEN_API IInOut {
  public:
    virtual ~IInOut();
    /// Prints `text` as it stands; a console that has gone away swallows it.
    virtual void Print(std::string_view text) = 0;
};

}  // namespace io
