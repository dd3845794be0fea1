#include "mirrowen/util/random.h"

#include <sys/random.h>

#include <atomic>
#include <cerrno>

#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/posix/errno_exc.h"

namespace util {

namespace {

class kernel_random_t final : public IRandom {
  public:
    void Fill(std::span<std::byte> out) override {
        while (!out.empty()) {
            const ssize_t got = ::getrandom(out.data(), out.size(), 0);
            if (got >= 0) {
                out = out.subspan(static_cast<std::size_t>(got));
            } else if (errno != EINTR) {
                throw exc::CRuntimeExc("Failed to get random bytes: %1", posix::DescribeErrno(errno));
            }
        }
    }
};

// Never destroyed, as the clock.
IRandom& kernel_random() {
    static auto* const instance = new kernel_random_t;
    return *instance;
}

constinit std::atomic<IRandom*> g_replacement{nullptr};

}  // namespace

IRandom::~IRandom() = default;

IRandom& random() noexcept {
    IRandom* const replacement = g_replacement.load(std::memory_order_acquire);
    return replacement != nullptr ? *replacement : kernel_random();
}

scoped_random_t::scoped_random_t(IRandom& replacement) noexcept : previous_(g_replacement.exchange(&replacement)) {}

scoped_random_t::~scoped_random_t() {
    g_replacement.store(previous_);
}

}  // namespace util
