#pragma once

#include <memory>
#include <string>

#include "mirrowen/export.h"
#include "mirrowen/io/area/area.h"
#include "mirrowen/synch/completion_port.h"

namespace io::area {

/// Where a transfer's areas end up. Driven by one thread at a time.
class MIRROWEN_API area_write_dev_t {
  public:
    virtual ~area_write_dev_t();
    /// The target's name for logs and messages.
    virtual std::string GetDisplayName() = 0;
    /// Writes bare bytes; throws where the device does not take them.
    virtual void Write(std::shared_ptr<area_t> area) = 0;
    /// Writes one area and lets go of its blocks.
    virtual void Write(std::shared_ptr<IArea> area) = 0;
    /// Everything has been written: makes it durable and closes the target. Called once, by whoever runs the transfer;
    /// destroying a device that was not finished gives up what it wrote.
    virtual void Finish(std::shared_ptr<synch::completion_port_t> port) = 0;
};

}  // namespace io::area
