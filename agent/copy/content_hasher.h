#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "agent/query/content_digest.h"
#include "mirrowen/digest/stream_digest.h"
#include "mirrowen/io/area/area_read_dev.h"
#include "mirrowen/io/area/knows_holes.h"

namespace agent::copy {

/// The digest of a file's content, taken from the areas in which it is read; holes are the zeroes that they stand for.
/// One thread at a time.
class content_hasher_t {
  public:
    /// The next area.
    void Add(const io::area::IArea& area) { AddUpTo(area, area.GetSize()); }
    /// The first `limit` bytes of the next area, or all of it.
    void AddUpTo(const io::area::IArea& area, std::uint64_t limit);

    /// Of what has come until now.
    query::content_digest_t Get() const noexcept { return {size_, digest_.Get()}; }

  private:
    digest::stream_digest_t digest_;
    std::uint64_t size_ = 0;
};

/// Adds up to `length` bytes from `source`, which is of no further use then when there were more. Returns how many
/// there were.
std::uint64_t HashFirst(io::area::area_read_dev_t& source, std::uint64_t length, content_hasher_t& hasher);

/// A source whose content is hashed on its way. One thread at a time.
class hashed_source_t final : public io::area::area_read_dev_t, public io::area::IKnowsHoles {
  public:
    /// Shares both; `hasher` may know the bytes before those that `inner` delivers.
    hashed_source_t(std::shared_ptr<io::area::area_read_dev_t> inner, std::shared_ptr<content_hasher_t> hasher);
    ~hashed_source_t() override;

    std::shared_ptr<io::area::IArea> ReadNext() override;
    std::string GetDisplayName() override;
    void SetEmptyBlocksMaximum(std::uint64_t maximum) override;
    bool KnowsHoles() const noexcept override;

  private:
    const std::shared_ptr<io::area::area_read_dev_t> inner_;
    const std::shared_ptr<content_hasher_t> hasher_;
};

}  // namespace agent::copy
