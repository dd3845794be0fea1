#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "agent/copy/content_pieces.h"
#include "mirrowen/io/area/area_read_dev.h"

namespace agent::verify {

/// Steps through the content that a source delivers, in runs of bytes and of zeroes. One thread.
class content_cursor_t {
  public:
    /// `source` must outlive this object.
    explicit content_cursor_t(io::area::area_read_dev_t& source);

    /// Whether there is more: fetches from the source when what it gave is used up. Throws what the source throws.
    bool Fill();
    /// What is left of the run at hand; only after Fill said that there is one. Its size is never 0.
    const copy::content_piece_t& Left() const noexcept { return left_; }
    /// Goes on by `count` bytes, at most those that are left.
    void Skip(std::uint64_t count) noexcept;

  private:
    io::area::area_read_dev_t& source_;
    std::shared_ptr<io::area::IArea> area_;
    std::vector<copy::content_piece_t> pieces_;  ///< of area_
    std::size_t next_ = 0;                       ///< index in pieces_
    copy::content_piece_t left_;
    bool ended_ = false;
};

}  // namespace agent::verify
