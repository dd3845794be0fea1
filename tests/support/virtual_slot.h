#pragma once

#include <cstddef>
#include <cstring>
#include <type_traits>

namespace tests {

/// Which virtual function of its class a member is: 1 is the first after the virtual destructor, 0 is none. Reads the
/// pointer to member as the Itanium C++ ABI lays it out (section 2.3): for a virtual function its first word is the
/// offset in the table plus 1 (on ARM the mark stands in the second word), and a virtual destructor takes two entries.
template <class Member>
std::size_t VirtualSlot(Member member) {
    static_assert(std::is_member_function_pointer_v<Member>);
    struct {
        std::ptrdiff_t function;
        std::ptrdiff_t adjustment;
    } parts{};
    static_assert(sizeof parts == sizeof member);
    std::memcpy(&parts, &member, sizeof parts);
    constexpr std::ptrdiff_t kEntry = sizeof(void*);
    constexpr std::ptrdiff_t kDestructors = 2;
#if defined(__aarch64__) || defined(__arm__)
    const bool isVirtual = parts.adjustment % 2 != 0;
    const std::ptrdiff_t offset = parts.function;
#else
    const bool isVirtual = parts.function % 2 != 0;
    const std::ptrdiff_t offset = parts.function - 1;
#endif
    return isVirtual ? static_cast<std::size_t>(offset / kEntry - kDestructors + 1) : 0;
}

}  // namespace tests
