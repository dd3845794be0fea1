#pragma once

#include <string>
#include <vector>

#include "tarn/export.h"
#include "tarn/flr/flr_context.h"

namespace tarn {

/// Finds where a path of a restore view really lies, with the symbolic links of the view resolved inside the view.
///
/// The kernel would resolve a link of the backed-up volume on this host, so that "/etc/passwd" in it, or enough "..",
/// would read this machine's own file. Therefore every component is walked here: an absolute target starts again at the
/// root of the view, a relative one goes on from the link's directory, ".." at the root stays there, and every step is
/// mapped anew, so that a mount point below another one is honoured. The host path that comes out has no link below the
/// real path of its mapping rule; links in the real path itself are the agent's own and are left to the host. The view
/// must not change while it is read: whoever can write to it could put a link in place between the walk and the open.
///
/// Uses the mapping rules of the given context, which must outlive it and not change meanwhile. One thread.
class TARN_API view_resolver_t {
  public:
    enum class ELastLink { eFollow, eKeep };  ///< what happens to a link in the last component

    explicit view_resolver_t(const CFLRContext& rules) noexcept : rules_(rules) {}

    /// The host path of `path`, a path of the view, normalised first (see Normalise). What is missing on the host is
    /// taken as it is named: the caller's own operation reports it.
    ///
    /// Throws `exc::CRuntimeExc` "No suitable mapping rule was found for a given path." when the path, or the target of
    /// a link on it, lies on no mount point, and `posix::errno_exc_t` "Failed to resolve symbolic links of [%1]" when
    /// there are more than 40 links (ELOOP) or one cannot be examined.
    std::string Resolve(const std::string& path, ELastLink lastLink) const;

    /// The same as a path of the view: absolute, without links, "." and "..". What lies on no mount point comes back,
    /// too; otherwise the errors of Resolve.
    std::string ResolveInView(const std::string& path, ELastLink lastLink) const;

    /// `CFLRContext::TryMapPath`, throwing `exc::CRuntimeExc` "No suitable mapping rule was found for a given path.".
    static std::string MapExc(const CFLRContext& rules, const std::string& path);

    /// `path` with "." and ".." resolved by name: "/a/./b/../c" is "/a/c", and ".." at the root stays there. A path
    /// without such components comes back as it is.
    static std::string Normalise(const std::string& path);

  private:
    class walk_t;
    const CFLRContext& rules_;
};

}  // namespace tarn
