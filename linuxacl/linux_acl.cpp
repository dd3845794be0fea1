#include "linuxacl/linux_acl.h"

#include <stdexcept>
#include <string>

namespace linuxacl {
namespace {

// The signatures are written out: what the compiler prints for a function differs from one compiler to the next.
[[noreturn]] void Refuse(const std::string& signature) {
    throw std::runtime_error(signature + " -- not implemented");
}

}  // namespace

util::CPosixAclValue CLinuxAcl::GetAclForFile(const std::string& /*path*/) {
    Refuse("static util::CPosixAclValue linuxacl::CLinuxAcl::GetAclForFile(const string&)");
}

void CLinuxAcl::SetAclForFile(const std::string& /*path*/, const util::CPosixAclValue& /*acl*/) {
    Refuse("static void linuxacl::CLinuxAcl::SetAclForFile(const string&, const util::CPosixAclValue&)");
}

bool CLinuxAcl::IsExtendedAcl(const std::string& /*path*/) {
    Refuse("static bool linuxacl::CLinuxAcl::IsExtendedAcl(const string&)");
}

}  // namespace linuxacl
