#pragma once

#include <cstdint>
#include <functional>

#include "mirrowen/io/area/area.h"

namespace agent::blob {

/// Turns the content of a new file into writes at offsets: data where it belongs, nothing for zeroes that the source
/// knows to be holes. One thread.
class content_writer_t {
  public:
    using write_t = std::function<void(std::uint64_t offset, const void* data, std::uint64_t size)>;

    explicit content_writer_t(write_t write);

    /// The next area of the content, without a gap after the one before. Throws what writing throws.
    void Put(const io::area::IArea& area);

    /// A file that ends in a hole gets the last byte of it, so that it is as long as it should be.
    void Finish();

    /// Bytes of data until now, holes left out.
    std::uint64_t GetWritten() const noexcept { return written_; }

  private:
    void WriteAt(std::uint64_t offset, const void* data, std::uint64_t size);

    const write_t write_;
    std::uint64_t position_ = 0;  ///< of what comes next
    std::uint64_t end_ = 0;       ///< of the last data
    std::uint64_t written_ = 0;
};

}  // namespace agent::blob
