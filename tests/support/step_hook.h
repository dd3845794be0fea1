#pragma once

#include <functional>
#include <utility>

#include "mirrowen/posix/syscalls.h"

namespace tests {

/// While it lives, runs `action` once, right before the `step`-th (from 0) of the system calls that look up, make,
/// rename or remove names: the worst moment for something else to change the tree. One at a time. `action` must not go
/// through `posix::sys()`.
class step_hook_t {
  public:
    step_hook_t(int step, std::function<void()> action) : table_(posix::sys()), scope_(Hooked(table_)) {
        s_left = step;
        s_action = std::move(action);
    }
    ~step_hook_t() { s_action = nullptr; }
    step_hook_t(const step_hook_t&) = delete;
    step_hook_t& operator=(const step_hook_t&) = delete;

    /// Whether the step was reached.
    bool HasRun() const { return s_action == nullptr; }

  private:
    static void Step() {
        if (s_action && s_left-- == 0) {
            std::exchange(s_action, nullptr)();
        }
    }

    /// Puts a step before the system call that `Member` names in the table.
    template <auto Member, class Result, class... Args>
    static Result Call(Args... args) {
        Step();
        return (s_below.*Member)(args...);
    }

    template <auto Member, class Result, class... Args>
    static void Hook(posix::syscalls_t& table, Result (*posix::syscalls_t::*)(Args...)) {
        table.*Member = &Call<Member, Result, Args...>;
    }

    static const posix::syscalls_t& Hooked(posix::syscalls_t& table) {
        using table_t = posix::syscalls_t;
        s_below = table;
        Hook<&table_t::openat>(table, &table_t::openat);
        Hook<&table_t::openat2>(table, &table_t::openat2);
        Hook<&table_t::fstatat>(table, &table_t::fstatat);
        Hook<&table_t::mkdirat>(table, &table_t::mkdirat);
        Hook<&table_t::unlinkat>(table, &table_t::unlinkat);
        Hook<&table_t::renameat2>(table, &table_t::renameat2);
        Hook<&table_t::linkat>(table, &table_t::linkat);
        Hook<&table_t::symlinkat>(table, &table_t::symlinkat);
        Hook<&table_t::readlinkat>(table, &table_t::readlinkat);
        Hook<&table_t::fchownat>(table, &table_t::fchownat);
        Hook<&table_t::utimensat>(table, &table_t::utimensat);
        return table;
    }

    static inline posix::syscalls_t s_below{};
    static inline int s_left = 0;
    static inline std::function<void()> s_action;

    posix::syscalls_t table_;
    posix::scoped_syscalls_t scope_;
};

}  // namespace tests
