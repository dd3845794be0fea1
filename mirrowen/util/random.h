#pragma once

#include <cstddef>
#include <span>

#include "mirrowen/export.h"

namespace util {

/// Where the house gets random bytes from (identifiers, nonces); replaceable so that tests are repeatable.
class MIRROWEN_API IRandom {
  public:
    virtual ~IRandom();
    /// Fills `out`; any thread.
    virtual void Fill(std::span<std::byte> out) = 0;
};

/// The source in force: the kernel's getrandom(2), unless a test put another one in place.
MIRROWEN_API IRandom& random() noexcept;

/// Puts `replacement` in force for the life of this object (tests; one at a time).
class MIRROWEN_API scoped_random_t {
  public:
    explicit scoped_random_t(IRandom& replacement) noexcept;
    ~scoped_random_t();
    scoped_random_t(const scoped_random_t&) = delete;
    scoped_random_t& operator=(const scoped_random_t&) = delete;

  private:
    IRandom* previous_;
};

}  // namespace util
