#pragma once

#include <string>
#include <vector>

#include "tarn/export.h"

namespace tarn {

/// The rules by which paths of a restore view, as the backed-up machine knew them, become paths of this host. The
/// embedding agent sets them up before the view is used; there is no lock, so changing rules while paths are mapped is
/// not allowed. Paths are UTF-8; other bytes survive.
class TARN_API CFLRContext {
  public:
    /// One mount point of the view and the host directory that holds its content. A value.
    struct TARN_API SMappingRule {
        /// Converts both from UTF-8 and splits the mount point.
        SMappingRule(const std::string& realPath, const std::string& mountPoint);

        /// Splits a path into its components.
        static void GetMountPoint(const std::wstring& path, std::vector<std::wstring>& components);

        std::wstring realPath;
        std::vector<std::wstring> mountPoint;
    };

    virtual ~CFLRContext();

    /// `mountPoint` may be empty or "/": the rule then serves what no deeper one does. Among rules with equally deep
    /// mount points the order is open.
    void AddMappingRule(const std::string& realPath, const std::string& mountPoint);

    /// Maps a path by the deepest rule whose mount point it is or lies under. Without one returns false and leaves
    /// `out` untouched. Components are not interpreted: ".." comes back as it is. Letter case matters as
    /// `util::g_fs_hosted_os_case_sensitive_paths` says.
    bool TryMapPath(const std::string& path, std::string& out) const;

    /// Removes every rule.
    void Reset();

    /// Whether `left` is to be tried before `right`: its mount point has more components.
    static bool RuleDescLengthSortPredicate(const SMappingRule& left, const SMappingRule& right);

    /// Whether the mount point's components are the path's first ones.
    static bool IsPathOnMountPoint(const std::vector<std::wstring>& path, const std::vector<std::wstring>& mountPoint,
                                   bool caseSensitive);

    /// The rule's real path, "/" unless it ends in one, and the components after the mount point's, joined by "/".
    /// `path` must be on the mount point.
    static std::wstring GetRealPath(const std::vector<std::wstring>& path, const SMappingRule& rule);

  private:
    std::vector<SMappingRule> rules_;  ///< deepest mount point first
};

}  // namespace tarn
