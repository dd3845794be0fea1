#include "agent/batch/batch_folder.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <string_view>
#include <system_error>

#include "agent/root/confined_root.h"
#include "mirrowen/logging/log_section.h"
#include "mirrowen/posix/errno_exc.h"
#include "mirrowen/posix/syscalls.h"

namespace agent::batch {

namespace {

constinit logging::log_section_t g_log("agent");

constexpr std::string_view kStem = "tarn-batch-";
constexpr std::string_view kRandom = "XXXXXX";

std::string usual_place() {
    const char* const wanted = std::getenv("TMPDIR");
    return wanted != nullptr && *wanted != '\0' ? wanted : "/tmp";
}

// Where there are no locks none is ever had, and nothing is taken for abandoned.
bool lock(int folder, int operation) {
    while (posix::sys().flock(folder, operation) != 0) {
        if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

bool is_folder_of_mine(const confined_root_t& place, const std::string& name) {
    if (!name.starts_with(kStem) || name.size() != kStem.size() + kRandom.size()) {
        return false;
    }
    const auto found = place.TryStat(name);
    return found && S_ISDIR(found->st_mode) && found->st_uid == ::geteuid();
}

void remove_if_abandoned(const confined_root_t& place, const std::string& name) {
    const posix::unique_fd_t folder = place.OpenDirectory(name);
    if (!lock(folder.get(), LOCK_EX | LOCK_NB)) {
        return;
    }
    for (const std::string& left : place.List(name, EOrder::eRaw)) {
        std::string path = name;
        place.RemoveFile(path.append("/").append(left));
    }
    place.RemoveDirectory(name);
    g_log.info("Removed [%1], which an earlier run left behind.", place.Shown(name));
}

// Another process may be at it, too.
void try_remove(const confined_root_t& place, const std::string& name) noexcept {
    try {
        if (is_folder_of_mine(place, name)) {
            remove_if_abandoned(place, name);
        }
    } catch (const std::exception& error) {
        g_log.info("Failed to remove what an earlier run left behind.", error);
    }
}

}  // namespace

batch_folder_t::batch_folder_t() {
    const std::string place = usual_place();
    do {
        Make(place);
    } while (!TryTake());
}

batch_folder_t::~batch_folder_t() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

void batch_folder_t::Make(const std::string& place) {
    path_ = place + "/" + std::string(kStem) + std::string(kRandom);
    if (::mkdtemp(path_.data()) == nullptr) {  // with mode 0700
        throw posix::errno_exc_t("Failed to create a temporary folder in [%1]", place, errno);
    }
}

// Between the making and the lock another process may have taken the folder for abandoned.
bool batch_folder_t::TryTake() {
    taken_.reset(posix::sys().open(path_.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC, 0));
    if (!taken_) {
        if (errno == ENOENT) {
            return false;
        }
        throw posix::errno_exc_t("Failed to open temporary folder [%1]", path_, errno);
    }
    lock(taken_.get(), LOCK_EX);
    struct stat found {};
    return posix::sys().stat(path_.c_str(), &found) == 0;
}

void RemoveAbandonedFolders() noexcept {
    try {
        const auto place = confined_root_t::Open(usual_place());
        for (const std::string& name : place->ListTop(EOrder::eRaw)) {
            try_remove(*place, name);
        }
    } catch (const std::exception& error) {
        g_log.info("Failed to look for what an earlier run left behind.", error);
    }
}

}  // namespace agent::batch
