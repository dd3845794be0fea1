#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <string>
#include <string_view>

#include "mirrowen/export.h"

namespace guid {

/// A 128-bit identifier; a value. Random ones are version 4 of RFC 4122. The empty (all zero) one orders first.
class MIRROWEN_API guid_t {
  public:
    using bytes_t = std::array<std::uint8_t, 16>;

    constexpr guid_t() noexcept = default;
    explicit constexpr guid_t(const bytes_t& bytes) noexcept : bytes_(bytes) {}

    /// A new random identifier, from the process's source of randomness.
    static guid_t Create();
    /// The same, under the name that sessions use.
    static guid_t CreateNew() { return Create(); }

    /// Reads ToAStr's form, in either letter case, with both curly brackets or with neither. Throws `exc::CRuntimeExc`
    /// "'%1' is not a GUID." for anything else.
    static guid_t FromAStr(std::string_view text);

    /// "{xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx}", lower case.
    std::string ToAStr() const;

    constexpr const bytes_t& Bytes() const noexcept { return bytes_; }
    constexpr bool IsEmpty() const noexcept { return *this == guid_t(); }
    // NOLINTNEXTLINE(modernize-use-nullptr): it takes the zero of a comparison that is generated for a pointer
    friend constexpr auto operator<=>(const guid_t&, const guid_t&) = default;

  private:
    bytes_t bytes_{};
};

}  // namespace guid
