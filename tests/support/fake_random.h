#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <random>
#include <span>

#include "mirrowen/util/random.h"

namespace tests {

/// A repeatable source of random bytes, in force for the life of this object: equal seeds give equal bytes.
class fake_random_t final : public util::IRandom {
  public:
    explicit fake_random_t(std::uint64_t seed = 1);
    ~fake_random_t() override;

    void Fill(std::span<std::byte> out) override;

  private:
    std::mutex mutex_;
    std::mt19937_64 engine_;
    util::scoped_random_t inForce_{*this};
};

}  // namespace tests
