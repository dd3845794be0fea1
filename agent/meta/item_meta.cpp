#include "agent/meta/item_meta.h"

#include <algorithm>
#include <cerrno>
#include <string_view>
#include <vector>

#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/util/file_info_apply.h"
#include "mirrowen/util/file_info_read.h"
#include "mirrowen/util/xattr_target.h"

namespace agent {

namespace {

/// Reports the tolerable problems and returns the first of the others, as text; empty when there is none.
std::string SiftProblems(util::meta_problems_t problems, const std::string& verb, const std::string& shown,
                         const std::shared_ptr<item_warnings_t>& warnings) {
    std::string worst;
    for (util::SMetaProblem& problem : problems) {
        problem.path = shown;
        const std::string text = util::DescribeMetaProblem(problem, verb);
        if (problem.kind != util::EMetaProblem::eOther) {
            Report(warnings, {problem.kind, shown, text});
        } else if (worst.empty()) {
            worst = text;
        }
    }
    return worst;
}

void Settle(const util::apply_result_t& result, const std::string& shown,
            const std::shared_ptr<item_warnings_t>& warnings) {
    const std::string worst = SiftProblems(result.problems, "set", shown, warnings);
    if (!worst.empty()) {
        throw exc::CRuntimeExc("Failed to apply the attributes of [%1]: %2.", shown, worst);
    }
}

/// A new object inherits its directory's default list, which the original did not have.
void RemoveInheritedLists(int fd, const util::CFileInfo& info) {
    const util::xattr_target_t target = util::xattr_target_t::OfDescriptor(fd);
    for (const char* list : {"system.posix_acl_access", "system.posix_acl_default"}) {
        const bool wanted = std::any_of(info.attributes.begin(), info.attributes.end(),
                                        [list](const util::SExtendedAttribute& known) { return known.name == list; });
        if (!wanted) {
            // Mostly there is none to remove, and without support there is nothing to inherit.
            static_cast<void>(target.Remove(list));
        }
    }
}

}  // namespace

util::CFileInfo ReadMeta(int fd, const std::string& shown, const std::shared_ptr<item_warnings_t>& warnings) {
    util::meta_problems_t problems;
    util::CFileInfo info = util::ReadFromDescriptor(fd, shown, problems);
    const std::string worst = SiftProblems(std::move(problems), "get", shown, warnings);
    if (!worst.empty()) {
        throw exc::CRuntimeExc("Failed to read the attributes of [%1]: %2.", shown, worst);
    }
    return info;
}

util::CFileInfo ReadLinkMeta(int dirFd, const std::string& name) {
    return util::ReadLinkInfo(dirFd, name);
}

EInherited FindInherited(int dirFd) {
    std::string list;
    const int error = util::xattr_target_t::OfDescriptor(dirFd).Get("system.posix_acl_default", list);
    return error == ENODATA || error == ENOTSUP ? EInherited::eNothing : EInherited::ePerhaps;
}

void ApplyMeta(int fd, const util::CFileInfo& info, const std::string& shown,
               const std::shared_ptr<item_warnings_t>& warnings, EInherited inherited) {
    if (info.isSet()) {
        if (inherited == EInherited::ePerhaps) {
            RemoveInheritedLists(fd, info);
        }
        Settle(util::ApplyToDescriptor(fd, shown, info), shown, warnings);
    }
}

void ApplyLinkMeta(int dirFd, const std::string& name, const util::CFileInfo& info, const std::string& shown,
                   const std::shared_ptr<item_warnings_t>& warnings) {
    Settle(util::ApplyToLink(dirFd, name, info), shown, warnings);
}

}  // namespace agent
