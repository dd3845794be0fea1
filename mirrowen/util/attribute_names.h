#pragma once

#include <string_view>

/// Which extended attributes belong to a file's transferable state (xattr(7)).
namespace util {

/// The NFSv4 access-control list in its binary form; it has a place of its own in a file info.
inline constexpr std::string_view kNfs4AclAttribute = "system.nfs4_acl";

/// Under these names XFS shows privileged programs its access-control lists a second time, in its own form.
inline constexpr std::string_view kXfsAclAttributes = "trusted.SGI_ACL_";

/// Whether the attribute travels in a file info's list: those of users, of the security modules and of trusted
/// programs, and the POSIX access-control lists. Others are the file system's own business.
constexpr bool IsTransferredAttribute(std::string_view name) noexcept {
    if (name.starts_with(kXfsAclAttributes)) {
        return false;
    }
    return name.starts_with("user.") || name.starts_with("security.") || name.starts_with("trusted.") ||
           name == "system.posix_acl_access" || name == "system.posix_acl_default";
}

}  // namespace util
