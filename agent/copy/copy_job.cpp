#include "agent/copy/copy_job.h"

namespace agent::copy {

namespace {

std::string join(const std::string& left, const std::string& right) {
    return left.empty() || right.empty() ? left + right : left + "/" + right;
}

}  // namespace

std::string copy_job_t::TargetOf(const std::string& entry) const {
    const std::string& top = source.top;
    return join(target, top.empty() ? entry : entry.size() == top.size() ? "" : entry.substr(top.size() + 1));
}

}  // namespace agent::copy
