#include "agent/confine/capabilities.h"

#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "mirrowen/posix/errno_exc.h"

namespace agent {

namespace {

// Version 3 of the call splits each set of 64 over two elements.
using capability_data_t = std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3>;

__user_cap_header_struct Header() {
    return {_LINUX_CAPABILITY_VERSION_3, 0};
}

capability_data_t Read() {
    __user_cap_header_struct header = Header();
    capability_data_t data{};
    if (::syscall(SYS_capget, &header, data.data()) != 0) {
        throw posix::errno_exc_t("Failed to read the [%1]", "capabilities", errno);
    }
    return data;
}

void Write(capability_data_t& data) {
    __user_cap_header_struct header = Header();
    if (::syscall(SYS_capset, &header, data.data()) != 0) {
        throw posix::errno_exc_t("Failed to give up [%1]", "capabilities", errno);
    }
}

void CutBoundingSet(capability_set_t kept) {
    for (int capability = 0; ::prctl(PR_CAPBSET_READ, capability, 0, 0, 0) >= 0; ++capability) {
        if ((kept & CapabilityBit(capability)) == 0 && ::prctl(PR_CAPBSET_DROP, capability, 0, 0, 0) != 0) {
            throw posix::errno_exc_t("Failed to give up [%1]", "capabilities", errno);
        }
    }
}

}  // namespace

capability_set_t EffectiveCapabilities() {
    const capability_data_t data = Read();
    return data[0].effective | capability_set_t{data[1].effective} << 32U;
}

void ForgoPrivileges(capability_set_t kept) {
    if (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) {
        throw posix::errno_exc_t("Failed to give up [%1]", "new privileges", errno);
    }
    // Kernels without an ambient set refuse the call and have nothing to clear.
    (void)::prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_CLEAR_ALL, 0, 0, 0);
    // Without the right to cut it, the bounding set bounds nothing: nothing is left to be bounded, nor can be added.
    if (HasCapability(CAP_SETPCAP)) {
        CutBoundingSet(kept);
    }
    capability_data_t data = Read();
    for (std::size_t half = 0; half < data.size(); ++half) {
        const auto part = static_cast<std::uint32_t>(kept >> (32U * half));
        data[half].permitted &= part;
        data[half].effective &= part;
        data[half].inheritable = 0;
    }
    Write(data);
}

}  // namespace agent
