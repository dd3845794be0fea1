#pragma once

#include <functional>
#include <memory>
#include <string>

#include "mirrowen/io/area/area_read_dev.h"
#include "mirrowen/io/area/knows_holes.h"

namespace agent::copy {

/// A source that ends with an error when its file was written to while it was read, so that the receiver discards what
/// came of it. One thread at a time.
class steady_source_t final : public io::area::area_read_dev_t, public io::area::IKnowsHoles {
  public:
    /// `hasChanged` is asked when `inner` has delivered everything.
    steady_source_t(std::shared_ptr<io::area::area_read_dev_t> inner, std::function<bool()> hasChanged);
    ~steady_source_t() override;

    /// At the end throws `exc::CRuntimeExc` "File [%1] changed while it was read.".
    std::shared_ptr<io::area::IArea> ReadNext() override;
    std::string GetDisplayName() override;
    void SetEmptyBlocksMaximum(std::uint64_t maximum) override;
    bool KnowsHoles() const noexcept override;

  private:
    const std::shared_ptr<io::area::area_read_dev_t> inner_;
    const std::function<bool()> hasChanged_;
};

}  // namespace agent::copy
