#pragma once

#include <memory>
#include <string>

#include "mirrowen/io/area/area_read_dev.h"

namespace agent::copy {

/// A source without content, for directories and links.
class empty_source_t final : public io::area::area_read_dev_t {
  public:
    explicit empty_source_t(std::string name);
    ~empty_source_t() override;
    std::shared_ptr<io::area::IArea> ReadNext() override;
    std::string GetDisplayName() override;
    void SetEmptyBlocksMaximum(std::uint64_t maximum) override;

  private:
    const std::string name_;
};

}  // namespace agent::copy
