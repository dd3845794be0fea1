#pragma once

#include <cstdint>
#include <string>

#include "agent/copy/copy.h"
#include "mirrowen/util/clock.h"

namespace cli {

/// Shows how a copy goes on standard error, one line rewritten in place, at most ten times a second. Silent unless
/// standard error is a terminal.
class progress_bar_t final : public agent::copy::copy_observer_t {
  public:
    explicit progress_bar_t(bool quiet);
    ~progress_bar_t() override;

    void OnPlanned(std::uint64_t items, std::uint64_t bytes) override;
    void OnBytes(std::uint64_t bytes) override;
    void OnBytesSpared(std::uint64_t bytes) override { OnBytes(bytes); }
    void OnItemDone(const std::string& path) override;

  private:
    void Show(bool now);

    const bool visible_;
    std::uint64_t items_ = 0;
    std::uint64_t itemsDone_ = 0;
    std::uint64_t bytes_ = 0;
    std::uint64_t bytesDone_ = 0;
    util::IClock::steady_point_t shownAt_{};
};

}  // namespace cli
