#include "agent/meta/owner_power.h"

#include <linux/capability.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <fstream>

namespace agent {

namespace {

bool MayChangeOwners() {
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3> data{};
    if (::syscall(SYS_capget, &header, data.data()) != 0) {
        return false;
    }
    static_assert(CAP_CHOWN < 32);
    return (data[0].effective & (std::uint32_t{1} << CAP_CHOWN)) != 0;
}

// user_namespaces(7): each line of the map has the first number inside, the first outside, and how many.
bool HasOneOwnerOnly() {
    std::ifstream map("/proc/self/uid_map");
    std::uint64_t owners = 0;
    for (std::uint64_t inside = 0, outside = 0, count = 0; map >> inside >> outside >> count;) {
        owners += count;
    }
    return owners == 1;
}

}  // namespace

bool CanGiveAnyOwner() {
    return MayChangeOwners() && !HasOneOwnerOnly();
}

}  // namespace agent
