#pragma once

#include <cstddef>
#include <string>

#include "mirrowen/io/io_dev.h"

namespace tests {

/// Serves scripted bytes to whoever reads and remembers what is written. One thread.
class recording_dev_t final : public io::io_dev_t {
  public:
    explicit recording_dev_t(std::string script = {});
    ~recording_dev_t() override;

    /// The next bytes of the script; 0 at its end.
    std::size_t Read(void* buffer, std::size_t count) override;
    std::size_t Write(const void* buffer, std::size_t count) override;
    void Flush() override;

    const std::string& Written() const noexcept { return written_; }
    /// How many bytes of the script nobody has read yet.
    std::size_t Unread() const noexcept { return script_.size() - position_; }
    int Flushes() const noexcept { return flushes_; }

  private:
    std::string script_;
    std::size_t position_ = 0;
    std::string written_;
    int flushes_ = 0;
};

}  // namespace tests
