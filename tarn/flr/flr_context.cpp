#include "tarn/flr/flr_context.h"

#include <algorithm>

#include "mirrowen/util/fs.h"
#include "mirrowen/util/str.h"

namespace tarn {
namespace {

using components_t = std::vector<std::wstring>;

components_t Split(const std::wstring& path) {
    components_t components;
    CFLRContext::SMappingRule::GetMountPoint(path, components);
    return components;
}

bool EndsWithDelimiter(const std::wstring& path) {
    return !path.empty() && util::fs_find_last_unix_path_delim(path) == path.size() - 1;
}

}  // namespace

CFLRContext::SMappingRule::SMappingRule(const std::string& real, const std::string& mount)
    : realPath(util::str_utf82w(real)) {
    GetMountPoint(util::str_utf82w(mount), mountPoint);
}

void CFLRContext::SMappingRule::GetMountPoint(const std::wstring& path, std::vector<std::wstring>& components) {
    components = util::fs_split_path(path);
}

CFLRContext::~CFLRContext() = default;

void CFLRContext::AddMappingRule(const std::string& realPath, const std::string& mountPoint) {
    rules_.emplace_back(realPath, mountPoint);
    std::sort(rules_.begin(), rules_.end(), RuleDescLengthSortPredicate);
}

bool CFLRContext::TryMapPath(const std::string& path, std::string& out) const {
    const components_t components = Split(util::str_utf82w(path));
    if (rules_.empty()) {
        return false;
    }
    const bool caseSensitive = util::g_fs_hosted_os_case_sensitive_paths;
    const auto serves = [&](const SMappingRule& rule) {
        return IsPathOnMountPoint(components, rule.mountPoint, caseSensitive);
    };
    const auto rule = std::find_if(rules_.begin(), rules_.end(), serves);
    if (rule == rules_.end()) {
        return false;
    }
    out = util::str_w2utf8(GetRealPath(components, *rule));
    return true;
}

void CFLRContext::Reset() {
    rules_.clear();
}

bool CFLRContext::RuleDescLengthSortPredicate(const SMappingRule& left, const SMappingRule& right) {
    return left.mountPoint.size() > right.mountPoint.size();
}

bool CFLRContext::IsPathOnMountPoint(const std::vector<std::wstring>& path, const std::vector<std::wstring>& mountPoint,
                                     bool caseSensitive) {
    if (mountPoint.size() > path.size()) {
        return false;
    }
    return std::equal(mountPoint.begin(), mountPoint.end(), path.begin(),
                      [caseSensitive](const std::wstring& left, const std::wstring& right) {
                          return caseSensitive ? left == right : util::tolower(left) == util::tolower(right);
                      });
}

std::wstring CFLRContext::GetRealPath(const std::vector<std::wstring>& path, const SMappingRule& rule) {
    std::wstring real = rule.realPath;
    if (!EndsWithDelimiter(real)) {
        real += L'/';
    }
    const std::size_t first = rule.mountPoint.size();
    for (std::size_t i = first; i < path.size(); ++i) {
        if (i != first) {
            real += L'/';
        }
        real += path[i];
    }
    return real;
}

}  // namespace tarn
