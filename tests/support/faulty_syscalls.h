#pragma once

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <limits>
#include <tuple>
#include <type_traits>
#include <vector>

#include "mirrowen/posix/syscalls.h"

namespace tests {

namespace detail {

/// What is to happen to one call of the table. Static, because the table holds plain functions.
struct syscall_rule_t {
    std::atomic<int> calls{0};
    std::atomic<int> firstFailure{0};  ///< counted from 1; 0: none
    std::atomic<int> failures{0};
    std::atomic<int> error{0};
    std::atomic<std::size_t> atMost{std::numeric_limits<std::size_t>::max()};

    void Reset() {
        calls = 0;
        firstFailure = 0;
        failures = 0;
        error = 0;
        atMost = std::numeric_limits<std::size_t>::max();
    }
};

template <auto Member>
inline syscall_rule_t g_syscallRule;

template <auto Member, class Function>
struct syscall_hook_t;

template <auto Member, class Result, class... Args>
struct syscall_hook_t<Member, Result (*posix::syscalls_t::*)(Args...)> {
    static Result Call(Args... args) {
        syscall_rule_t& rule = g_syscallRule<Member>;
        const int call = ++rule.calls;
        if (rule.firstFailure != 0 && call >= rule.firstFailure && call - rule.firstFailure < rule.failures) {
            errno = rule.error;
            return static_cast<Result>(-1);
        }
        std::tuple<Args...> arguments(args...);
        if constexpr (sizeof...(Args) >= 3) {
            if constexpr (std::is_same_v<std::tuple_element_t<2, std::tuple<Args...>>, std::size_t>) {
                std::get<2>(arguments) = std::min<std::size_t>(std::get<2>(arguments), rule.atMost);
            }
        }
        return std::apply(posix::real_syscalls().*Member, arguments);
    }
};

}  // namespace detail

/// Puts a table of system calls in force that starts as the real one and in which single calls fail, end short or are
/// counted:
///
///     tests::faulty_syscalls_t calls;
///     calls.Fail<&posix::syscalls_t::fsync>(EIO);
///
/// Set it up before threads run; one at a time.
class faulty_syscalls_t {
  public:
    faulty_syscalls_t() = default;
    faulty_syscalls_t(const faulty_syscalls_t&) = delete;
    faulty_syscalls_t& operator=(const faulty_syscalls_t&) = delete;
    ~faulty_syscalls_t() {
        for (detail::syscall_rule_t* const rule : used_) {
            rule->Reset();
        }
    }

    /// The calls from the `nth` on (counted from 1 since the call was first named to this object) fail with `error`:
    /// one of them, or `times`.
    template <auto Member>
    void Fail(int error, int nth = 1, int times = 1) {
        detail::syscall_rule_t& rule = Hook<Member>();
        rule.error = error;
        rule.failures = times;
        rule.firstFailure = nth;
    }

    /// Each read, pread, write or pwrite takes at most this many bytes.
    template <auto Member>
    void EndShort(std::size_t atMost) {
        Hook<Member>().atMost = atMost;
    }

    /// Begins to count without changing anything.
    template <auto Member>
    void Watch() {
        Hook<Member>();
    }

    /// How often the call was made since it was first named to this object.
    template <auto Member>
    int Count() const {
        return detail::g_syscallRule<Member>.calls;
    }

    /// For what the rules above do not offer: put a function of your own into the table.
    posix::syscalls_t& Table() noexcept { return table_; }

  private:
    template <auto Member>
    detail::syscall_rule_t& Hook() {
        detail::syscall_rule_t& rule = detail::g_syscallRule<Member>;
        if (std::find(used_.begin(), used_.end(), &rule) == used_.end()) {
            used_.push_back(&rule);
            table_.*Member = &detail::syscall_hook_t<Member, decltype(Member)>::Call;
        }
        return rule;
    }

    posix::syscalls_t table_ = posix::real_syscalls();
    std::vector<detail::syscall_rule_t*> used_;
    posix::scoped_syscalls_t inForce_{table_};
};

}  // namespace tests
