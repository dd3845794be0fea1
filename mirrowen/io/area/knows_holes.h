#pragma once

#include "mirrowen/export.h"
#include "mirrowen/io/area/area_read_dev.h"

namespace io::area {

/// What a source offers that knows by itself where its holes are: they come as sparse areas or sparse blocks, and what
/// comes as data is data, also where every byte of it is zero. Whoever moves its areas then leaves zero bytes alone, so
/// that the target gets the same holes, no more and no fewer. Asked for by cast; a source that stands in front of
/// another one passes the answer on.
class MIRROWEN_API IKnowsHoles {
  public:
    virtual ~IKnowsHoles();
    /// The same for the source's whole life. Any thread.
    virtual bool KnowsHoles() const noexcept = 0;
};

/// The answer of `source`; false when it does not offer one.
MIRROWEN_API bool KnowsHoles(const area_read_dev_t& source) noexcept;

}  // namespace io::area
