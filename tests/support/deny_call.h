#pragma once

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>

#include <array>
#include <cstddef>

namespace tests {

/// From now on the system call `number` fails in this process with `error`, as on a host that forbids it. Cannot be
/// undone: for child processes. False when that could not be arranged.
inline bool DenyCall(unsigned number, unsigned error) {
    std::array<sock_filter, 4> program = {{
        {BPF_LD | BPF_W | BPF_ABS, 0, 0, offsetof(seccomp_data, nr)},
        {BPF_JMP | BPF_JEQ | BPF_K, 0, 1, number},
        {BPF_RET | BPF_K, 0, 0, SECCOMP_RET_ERRNO | error},
        {BPF_RET | BPF_K, 0, 0, SECCOMP_RET_ALLOW},
    }};
    const sock_fprog filter{program.size(), program.data()};
    return ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 && ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

}  // namespace tests
