#pragma once

#include <dirent.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <cstddef>
#include <memory>
#include <string>

#include "tarn/export.h"

namespace tarn::lindir {

/// What an enumerator asks the system. The ...Exc operations throw; the ...Safe ones write a warning to `fs_log` that
/// names `path` and the reason, and answer false or null, so that a description goes on without the value. Any thread.
class TARN_API CLinFileOp {
  public:
    CLinFileOp() = delete;

    /// Throws `posix::errno_exc_t` "Failed to open dir: %1". The caller closes it.
    static DIR* OpenDirExc(const std::string& path);

    /// Not available on this platform: throws `std::runtime_error` "tarn/lindir/LinFileOp:GetDirDescExc -- not
    /// supported on this platform".
    static int GetDirDescExc(DIR* directory, const std::string& path);

    /// Throws `posix::errno_exc_t` "Failed to call fstat: %1, file descriptor: %2" with path and descriptor.
    static void fstatExc(int fd, struct stat& out, const std::string& path);

    /// "Unable to get lstat for item [%1]. %2"
    static bool lstatSafe(const std::string& path, struct stat& out);
    /// "Unable to get stat for item [%1]. %2"
    static bool statSafe(const std::string& path, struct stat& out);
    /// "Unable to call getpwuid for item [%1]. %2"; an account that does not exist is such a failure too.
    static std::shared_ptr<const struct passwd> getpwuidSafe(uid_t uid, const std::string& path);
    /// "Unable to call getgrgid for item [%1]. %2"
    static std::shared_ptr<const struct group> getgrgidSafe(gid_t gid, const std::string& path);
    /// The content of a link of at most `size` bytes: "Unable to call readlink for item [%1]. %2". An empty link and
    /// one that has grown beyond `size` fail too.
    static bool readlinkSafe(const std::string& path, std::string& target, std::size_t size);
};

}  // namespace tarn::lindir
