#pragma once

#include <cstdint>

namespace agent {

/// A set of capabilities (capabilities(7)): bit n stands for the capability with the number n.
using capability_set_t = std::uint64_t;

constexpr capability_set_t CapabilityBit(int capability) noexcept {
    return capability_set_t{1} << capability;
}

/// What this thread can do at the moment (its effective set). Throws `posix::errno_exc_t` "Failed to read the [%1]".
capability_set_t EffectiveCapabilities();

inline bool HasCapability(int capability) {
    return (EffectiveCapabilities() & CapabilityBit(capability)) != 0;
}

/// Gives up every capability that is not in `kept`, and every way to get one back: the inheritable, ambient and
/// bounding sets are emptied likewise and no program that is executed later can add any (PR_SET_NO_NEW_PRIVS). What is
/// kept and was there stays effective. For the calling thread and those that it starts later, so call it while it is
/// alone. Throws `posix::errno_exc_t` "Failed to give up [%1]".
void ForgoPrivileges(capability_set_t kept);

}  // namespace agent
