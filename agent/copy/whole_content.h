#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "agent/batch/batch_packer.h"
#include "mirrowen/io/area/area_read_dev.h"

namespace agent::copy {

/// The content of a small file, read to its end into memory, so that whatever goes wrong with reading it is known
/// before anything of it travels. A value.
class whole_content_t {
  public:
    whole_content_t() = default;
    /// Reads `source`, which is to deliver `size` bytes from the first one on. Throws what reading throws, and
    /// `exc::CRuntimeExc` "[%1] has [%2] bytes instead of [%3]." when there are fewer or when there are more, which are
    /// not kept, and "[%1] goes on at [%2] instead of [%3]." for bytes out of their order.
    whole_content_t(io::area::area_read_dev_t& source, std::uint64_t size);

    /// What is no hole, in order. The bytes go with this object.
    std::span<const batch::extent_t> Extents() const noexcept { return extents_; }

  private:
    void Add(std::shared_ptr<io::area::IArea> area);

    std::vector<std::shared_ptr<io::area::IArea>> areas_;
    std::vector<batch::extent_t> extents_;
};

}  // namespace agent::copy
