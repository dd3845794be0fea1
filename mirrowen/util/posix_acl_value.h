#pragma once

#include <string>

namespace util {

/// A POSIX access-control list as text: whether it is an extended one (more than the mode bits), and the access and
/// default lists in the long text form of acl_to_text(3). A value.
struct CPosixAclValue {
    bool isExtended = false;
    std::string accessText;
    std::string defaultText;

    bool IsEmpty() const noexcept { return !isExtended && accessText.empty() && defaultText.empty(); }
    friend bool operator==(const CPosixAclValue&, const CPosixAclValue&) = default;
};

}  // namespace util
