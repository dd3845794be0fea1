#include "agent/serve/launch.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "agent/meta/owner_power.h"
#include "agent/net/socket.h"
#include "mirrowen/posix/errno_exc.h"
#include "mirrowen/posix/syscalls.h"

namespace agent::serve {

namespace {

posix::unique_fd_t open_directory(const std::string& path) {
    posix::unique_fd_t fd(posix::sys().open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC, 0));
    if (!fd) {
        throw posix::errno_exc_t("Failed to open directory [%1]", path, errno);
    }
    return fd;
}

// Paths of the dialogue are relative to the working directory.
void enter(const confined_root_t& root, const std::string& path) {
    if (::fchdir(root.GetDescriptor()) != 0) {
        throw posix::errno_exc_t("Failed to enter directory [%1]", path, errno);
    }
}

}  // namespace

launch_t::launch_t(const serve_options_t& options) {
    posix::unique_fd_t root = open_directory(options.root);
    const bool confined = options.confinement == EConfinement::eKernel;
    socket_ = net::Listen(options.endpoint, confined ? net::EReach::eNetwork : net::EReach::eLoopback);
    givesAnyOwner_ = CanGiveAnyOwner();
    if (confined) {
        names_ = std::make_unique<names_helper_t>();
        confinement_ = Confine(std::move(root), options.root);
        givesAnyOwner_ = givesAnyOwner_ && confinement_->by == EConfinedBy::ePrivilege;
        root = open_directory("/");
    }
    root_ = std::make_shared<const confined_root_t>(std::move(root), "");
    enter(*root_, options.root);
}

}  // namespace agent::serve
