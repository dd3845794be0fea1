#include "agent/confine/confine.h"

#include <fcntl.h>
#include <linux/capability.h>
#include <unistd.h>

#include <cerrno>

#include "agent/confine/capabilities.h"
#include "agent/confine/landlock.h"
#include "agent/confine/open_directories.h"
#include "agent/confine/runtime.h"
#include "mirrowen/posix/errno_exc.h"
#include "mirrowen/util/str_format.h"

namespace agent {

namespace {

// What keeping other people's files takes. Left out on purpose: CAP_SYS_ADMIN, which "trusted." and most "security."
// attributes would need, since it can mount; CAP_DAC_READ_SEARCH, which opens files by handle beside every path;
// CAP_MKNOD, since no item is a device.
constexpr capability_set_t kKept = CapabilityBit(CAP_CHOWN) |         // give files their owners
                                   CapabilityBit(CAP_DAC_OVERRIDE) |  // write and read what a mode forbids its owner
                                   CapabilityBit(CAP_FOWNER) |        // set modes, times and lists of others' files
                                   CapabilityBit(CAP_FSETID) |        // keep set-group-ID bits that are set
                                   CapabilityBit(CAP_SETFCAP);        // restore files' capabilities

void Enter(posix::unique_fd_t directory) {
    if (::fchdir(directory.get()) != 0) {
        throw posix::errno_exc_t("Failed to enter [%1]", "the directory", errno);
    }
}

posix::unique_fd_t OpenNewRoot() {
    posix::unique_fd_t root(::open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!root) {
        throw posix::errno_exc_t("Failed to open directory [%1]", "/", errno);
    }
    return root;
}

// The order counts: each step takes away what the ones before it still needed.
confinement_t TakeSteps(posix::unique_fd_t directory) {
    confinement_t result;
    PrepareRuntime();             // reads files of the host
    Enter(std::move(directory));  // the working directory follows into the namespace, a descriptor would not
    CloseDirectories();           // reads /proc
    result.by = LeaveMountNamespace();
    EnterWorkingDirectory();  // from here on the host is out of sight
    const bool privileged = result.by == EConfinedBy::ePrivilege;
    ForgoPrivileges(privileged ? kKept : 0);  // Landlock wants the way to new ones closed
    result.landlock = RestrictToDirectory(OpenNewRoot().get());
    return result;
}

}  // namespace

confine_exc_t::~confine_exc_t() = default;

confinement_t Confine(posix::unique_fd_t directory, const std::string& path) {
    try {
        return TakeSteps(std::move(directory));
    } catch (const std::exception&) {
        throw confine_exc_t(util::str_format("Failed to confine the process to [%1].", path), std::current_exception());
    }
}

}  // namespace agent
