#pragma once

#include <cstddef>
#include <limits>
#include <memory>

#include "mirrowen/io/io_dev.h"

namespace tests {

/// A device that reads in small pieces and is full at some point, over another one. One thread.
class short_dev_t final : public io::io_dev_t {
  public:
    /// Each Read gives at most `readPiece` bytes; after `writeRoom` bytes Write takes no more.
    short_dev_t(std::shared_ptr<io::io_dev_t> inner, std::size_t readPiece,
                std::size_t writeRoom = std::numeric_limits<std::size_t>::max());
    ~short_dev_t() override;

    std::size_t Read(void* buffer, std::size_t count) override;
    std::size_t Write(const void* buffer, std::size_t count) override;
    void Flush() override;

  private:
    std::shared_ptr<io::io_dev_t> inner_;
    std::size_t readPiece_;
    std::size_t writeRoom_;
};

}  // namespace tests
