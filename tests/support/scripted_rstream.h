#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "tarn/file_rstream.h"

namespace tests {

/// A read stream over bytes in memory that gives at most `mostAtOnce` of them a call and counts what it is asked.
class scripted_rstream_t final : public tarn::file_rstream_t {
  public:
    explicit scripted_rstream_t(std::string content, std::uint64_t mostAtOnce = ~std::uint64_t{0})
        : content_(std::move(content)), mostAtOnce_(mostAtOnce) {}

    std::string GetPath() override { return "/source"; }
    std::uint64_t GetFileSize() override { return content_.size(); }
    void SeekTo(std::uint64_t /*offset*/) override { throw std::logic_error("nobody should seek here"); }

    std::uint64_t ReadExc(void* buffer, std::uint64_t count) override {
        asked_.push_back(count);
        if (failsAtCall_ != 0 && asked_.size() == failsAtCall_) {
            throw std::runtime_error("the disk is gone");
        }
        const std::uint64_t part = std::min({count, mostAtOnce_, content_.size() - position_});
        std::memcpy(buffer, content_.data() + position_, part);
        position_ += part;
        return part;
    }

    void FinishRead() override { ++finished_; }

    /// The read of this number, counted from 1, throws `std::runtime_error("the disk is gone")`.
    void FailAtCall(std::size_t call) { failsAtCall_ = call; }

    const std::vector<std::uint64_t>& Asked() const { return asked_; }
    int Finished() const { return finished_; }

  private:
    std::string content_;
    std::uint64_t mostAtOnce_;
    std::uint64_t position_ = 0;
    std::vector<std::uint64_t> asked_;
    std::size_t failsAtCall_ = 0;
    int finished_ = 0;
};

}  // namespace tests
