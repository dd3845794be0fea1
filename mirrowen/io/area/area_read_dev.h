#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "mirrowen/export.h"
#include "mirrowen/io/area/area.h"

namespace io::area {

/// Where a transfer's areas come from. Driven by one thread at a time.
class MIRROWEN_API area_read_dev_t {
  public:
    virtual ~area_read_dev_t();
    /// The next area, or an empty pointer when there is none left (and again on every later call).
    virtual std::shared_ptr<IArea> ReadNext() = 0;
    /// The source's name for logs and messages.
    virtual std::string GetDisplayName() = 0;
    /// How many empty blocks in a row an area may describe; a device that makes none ignores it.
    virtual void SetEmptyBlocksMaximum(std::uint64_t maximum) = 0;
};

}  // namespace io::area
