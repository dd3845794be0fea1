#include "mirrowen/util/file_info.h"

#include <algorithm>
#include <exception>

#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/logging/log_section.h"
#include "mirrowen/posix/errno_exc.h"
#include "mirrowen/util/attribute_names.h"
#include "mirrowen/util/file_info_apply.h"
#include "mirrowen/util/file_info_read.h"
#include "mirrowen/util/xattr_target.h"

namespace util {

namespace {

constinit logging::log_section_t util_log("util");

}  // namespace

CFileInfo CFileInfo::getInfoForFile(const std::string& path, bool followLinks) {
    meta_problems_t problems;
    CFileInfo info = ReadFromPath(path, followLinks, problems);
    for (const SMetaProblem& problem : problems) {
        util_log.warn(DescribeMetaProblem(problem, "get"));
    }
    return info;
}

void CFileInfo::applyMetaForFile(const std::string& path) const {
    const apply_result_t result = ApplyToPath(path, *this);
    const auto failure = std::find_if(result.problems.begin(), result.problems.end(),
                                      [](const SMetaProblem& problem) { return problem.error != 0; });
    if (failure != result.problems.end()) {
        throw exc::CRuntimeExc(str_format("Failed to apply attributes to [%1].", path),
                               std::make_exception_ptr(posix::errno_exc_t("Failed to set " + failure->what + " of [%1]",
                                                                          path, failure->error)));
    }
}

void setFileNaclSafe(const std::string& path, const std::vector<std::uint8_t>& acl) {
    const int error = xattr_target_t::OfPath(path, false).Set(std::string(kNfs4AclAttribute), acl.data(), acl.size());
    if (error != 0) {
        throw posix::errno_exc_t("Failed to set NFSv4 access-control list of [%1]", path, error);
    }
}

}  // namespace util
