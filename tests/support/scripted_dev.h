#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <string>
#include <utility>

#include "mirrowen/io/io_dev.h"

namespace tests {

/// A device that behaves as it is told: delivers `input` in pieces, takes a limited number of bytes, fails on request,
/// and remembers what it was given.
class scripted_dev_t final : public io::io_dev_t {
  public:
    explicit scripted_dev_t(std::string bytes = {}) : input(std::move(bytes)) {}

    std::size_t Read(void* buffer, std::size_t count) override {
        Fail();
        ++reads;
        largestRead = std::max(largestRead, count);
        const std::size_t part = std::min({count, pieceSize, input.size() - position});
        std::memcpy(buffer, input.data() + position, part);
        position += part;
        return part;
    }

    std::size_t Write(const void* buffer, std::size_t count) override {
        Fail();
        const std::size_t part = std::min(count, room);
        output.append(static_cast<const char*>(buffer), part);
        room -= part;
        return part;
    }

    void Flush() override {
        Fail();
        ++flushes;
    }

    static constexpr std::size_t kNoLimit = std::numeric_limits<std::size_t>::max();

    std::string input;
    std::size_t pieceSize = kNoLimit;  ///< most bytes that one Read delivers
    std::size_t room = kNoLimit;       ///< bytes that the device still takes
    std::string failure;               ///< when not empty, every call throws it as std::runtime_error
    std::string output;
    std::size_t position = 0;
    std::size_t reads = 0;
    std::size_t largestRead = 0;
    int flushes = 0;

  private:
    void Fail() const {
        if (!failure.empty()) {
            throw std::runtime_error(failure);
        }
    }
};

}  // namespace tests
