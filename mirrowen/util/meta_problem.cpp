#include "mirrowen/util/meta_problem.h"

#include <cerrno>

#include "mirrowen/posix/errno_exc.h"
#include "mirrowen/util/str_format.h"

namespace util {

std::string DescribeMetaProblem(const SMetaProblem& problem, const std::string& verb) {
    if (problem.error == 0) {
        return str_format("The %1 of [%2] is not known here.", problem.what, problem.path);
    }
    return str_format("Failed to %1 %2 of [%3]: %4", verb, problem.what, problem.path,
                      posix::DescribeErrno(problem.error));
}

EMetaProblem ClassifyMetaErrno(int error) noexcept {
    switch (error) {
        case EPERM:
        case EACCES:
            return EMetaProblem::eNoPrivilege;
        case ENOTSUP:
        case ENOSYS:
        case E2BIG:
        case ERANGE:
            return EMetaProblem::eUnsupported;
        default:
            return EMetaProblem::eOther;
    }
}

}  // namespace util
