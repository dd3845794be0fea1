#pragma once

#include <string>

#include "mirrowen/util/posix_acl_value.h"
#include "tarn/export.h"

namespace linuxacl {

/// Access to POSIX access-control lists of host files. Not implemented on this platform: every operation refuses with a
/// plain `std::runtime_error`, its signature followed by " -- not implemented", whatever the path, and callers go on
/// without a list where they can. Lists travel as extended attributes of `util::CFileInfo` instead. Any thread.
class TARN_API CLinuxAcl {
  public:
    CLinuxAcl() = delete;

    /// Throws "static util::CPosixAclValue linuxacl::CLinuxAcl::GetAclForFile(const string&) -- not implemented".
    static util::CPosixAclValue GetAclForFile(const std::string& path);

    /// Throws "static void linuxacl::CLinuxAcl::SetAclForFile(const string&, const util::CPosixAclValue&) -- not
    /// implemented" (one line).
    static void SetAclForFile(const std::string& path, const util::CPosixAclValue& acl);

    /// Throws "static bool linuxacl::CLinuxAcl::IsExtendedAcl(const string&) -- not implemented".
    static bool IsExtendedAcl(const std::string& path);
};

}  // namespace linuxacl
