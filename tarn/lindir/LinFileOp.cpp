#include "tarn/lindir/LinFileOp.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <vector>

#include "mirrowen/posix/errno_exc.h"
#include "mirrowen/posix/syscalls.h"
#include "tarn/fs_log.h"

namespace tarn::lindir {

namespace {

/// A record of the account database together with the memory that its texts lie in.
template <class Record>
struct account_t {
    Record record{};
    std::vector<char> texts = std::vector<char>(1024);
};

/// Groups with many members need room; beyond this the database is taken as broken.
constexpr std::size_t kMaxTexts = std::size_t{16} << 20;

void Warn(const char* format, const std::string& path, int error) {
    fs_log.warn(format, path, posix::DescribeErrno(error));
}

/// Asks one of the re-entrant calls with more and more room. Null with `error` set when there is no such account.
template <class Record, class Id>
std::shared_ptr<const Record> FindAccount(int (*ask)(Id, Record*, char*, std::size_t, Record**), Id id, int& error) {
    auto account = std::make_shared<account_t<Record>>();
    Record* found = nullptr;
    do {
        error = ask(id, &account->record, account->texts.data(), account->texts.size(), &found);
        if (error == ERANGE) {
            account->texts.resize(account->texts.size() * 2);
        }
    } while (error == EINTR || (error == ERANGE && account->texts.size() <= kMaxTexts));
    if (found == nullptr) {
        error = error == 0 ? ENOENT : error;
        return nullptr;
    }
    return {account, &account->record};
}

}  // namespace

DIR* CLinFileOp::OpenDirExc(const std::string& path) {
    DIR* const directory = ::opendir(path.c_str());
    if (directory == nullptr) {
        throw posix::errno_exc_t("Failed to open dir: %1", path, errno);
    }
    return directory;
}

int CLinFileOp::GetDirDescExc(DIR* /*directory*/, const std::string& /*path*/) {
    throw std::runtime_error("tarn/lindir/LinFileOp:GetDirDescExc -- not supported on this platform");
}

void CLinFileOp::fstatExc(int fd, struct stat& out, const std::string& path) {
    if (posix::sys().fstat(fd, &out) != 0) {
        const int error = errno;
        throw posix::errno_exc_t("Failed to call fstat: %1, file descriptor: " + std::to_string(fd), path, error);
    }
}

bool CLinFileOp::lstatSafe(const std::string& path, struct stat& out) {
    if (posix::sys().lstat(path.c_str(), &out) != 0) {
        Warn("Unable to get lstat for item [%1]. %2", path, errno);
        return false;
    }
    return true;
}

bool CLinFileOp::statSafe(const std::string& path, struct stat& out) {
    if (posix::sys().stat(path.c_str(), &out) != 0) {
        Warn("Unable to get stat for item [%1]. %2", path, errno);
        return false;
    }
    return true;
}

std::shared_ptr<const struct passwd> CLinFileOp::getpwuidSafe(uid_t uid, const std::string& path) {
    int error = 0;
    auto account = FindAccount<struct passwd>(&::getpwuid_r, uid, error);
    if (!account) {
        Warn("Unable to call getpwuid for item [%1]. %2", path, error);
    }
    return account;
}

std::shared_ptr<const struct group> CLinFileOp::getgrgidSafe(gid_t gid, const std::string& path) {
    int error = 0;
    auto account = FindAccount<struct group>(&::getgrgid_r, gid, error);
    if (!account) {
        Warn("Unable to call getgrgid for item [%1]. %2", path, error);
    }
    return account;
}

bool CLinFileOp::readlinkSafe(const std::string& path, std::string& target, std::size_t size) {
    std::string buffer(size + 1, '\0');
    const ssize_t length = posix::sys().readlinkat(AT_FDCWD, path.c_str(), buffer.data(), buffer.size());
    if (length <= 0 || static_cast<std::size_t>(length) > size) {
        Warn("Unable to call readlink for item [%1]. %2", path, length < 0 ? errno : EINVAL);
        return false;
    }
    buffer.resize(static_cast<std::size_t>(length));
    target = std::move(buffer);
    return true;
}

}  // namespace tarn::lindir
