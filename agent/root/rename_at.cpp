#include "agent/root/rename_at.h"

#include <cerrno>
#include <cstdio>

#include "mirrowen/exc/already_exists_exc.h"
#include "mirrowen/posix/errno_exc.h"
#include "mirrowen/posix/syscalls.h"
#include "mirrowen/util/str_format.h"

namespace agent {

namespace {

/// 0, or the errno. RENAME_NOREPLACE is unknown to some network and user-space file systems (EINVAL).
int RenameWithoutReplacing(int fromDir, const std::string& from, int toDir, const std::string& to) {
    const posix::syscalls_t& sys = posix::sys();
    if (sys.renameat2(fromDir, from.c_str(), toDir, to.c_str(), RENAME_NOREPLACE) == 0) {
        return 0;
    }
    if (errno != EINVAL) {
        return errno;
    }
    if (sys.linkat(fromDir, from.c_str(), toDir, to.c_str(), 0) != 0) {
        return errno;
    }
    return sys.unlinkat(fromDir, from.c_str(), 0) == 0 ? 0 : errno;
}

}  // namespace

void RenameAt(int fromDir, const std::string& from, int toDir, const std::string& to, EReplace replace,
              const std::string& shown) {
    int error = 0;
    if (replace == EReplace::eNo) {
        error = RenameWithoutReplacing(fromDir, from, toDir, to);
    } else if (posix::sys().renameat2(fromDir, from.c_str(), toDir, to.c_str(), 0) != 0) {
        error = errno;
    }
    if (error == EEXIST && replace == EReplace::eNo) {
        ThrowExists(shown);
    }
    if (error != 0) {
        throw posix::errno_exc_t("Failed to rename to [%1]", shown, error);
    }
}

void ThrowExists(const std::string& shown) {
    throw exc::CAlreadyExistsExc(util::str_format("[%1] exists already.", shown));
}

}  // namespace agent
