#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include "mirrowen/io/io_dev.h"

namespace tests {

/// Passes everything on to another device and keeps a copy of both directions. As thread-safe as the device.
class tee_dev_t final : public io::io_dev_t {
  public:
    explicit tee_dev_t(std::shared_ptr<io::io_dev_t> inner) : inner_(std::move(inner)) {}

    std::size_t Read(void* buffer, std::size_t count) override {
        const std::size_t part = inner_->Read(buffer, count);
        Keep(read_, buffer, part);
        return part;
    }

    std::size_t Write(const void* buffer, std::size_t count) override {
        const std::size_t part = inner_->Write(buffer, count);
        Keep(written_, buffer, part);
        return part;
    }

    void Flush() override { inner_->Flush(); }

    std::string BytesRead() const { return Copy(read_); }
    std::string BytesWritten() const { return Copy(written_); }

  private:
    void Keep(std::string& bytes, const void* buffer, std::size_t count) {
        const std::scoped_lock lock(mutex_);
        bytes.append(static_cast<const char*>(buffer), count);
    }

    std::string Copy(const std::string& bytes) const {
        const std::scoped_lock lock(mutex_);
        return bytes;
    }

    std::shared_ptr<io::io_dev_t> inner_;
    mutable std::mutex mutex_;
    std::string read_;
    std::string written_;
};

}  // namespace tests
