#include "mirrowen/util/file_info_read.h"

#include <cerrno>
#include <string_view>
#include <utility>

#include "mirrowen/posix/errno_exc.h"
#include "mirrowen/posix/syscalls.h"
#include "mirrowen/util/attribute_names.h"
#include "mirrowen/util/name_service.h"
#include "mirrowen/util/xattr_target.h"

namespace util {

namespace {

[[noreturn]] void ThrowFailure(const std::string& path, int error) {
    throw posix::errno_exc_t("Failed to get attributes of [%1]", path, error);
}

EFileType TypeOf(mode_t mode) {
    switch (mode & S_IFMT) {
        case S_IFDIR:
            return EFileType::eDirectory;
        case S_IFLNK:
            return EFileType::eSymlink;
        case S_IFIFO:
            return EFileType::eFifo;
        case S_IFSOCK:
            return EFileType::eSocket;
        case S_IFCHR:
            return EFileType::eCharDevice;
        case S_IFBLK:
            return EFileType::eBlockDevice;
        default:
            return EFileType::eRegular;
    }
}

SFileTime TimeOf(const struct timespec& time) {
    return {.seconds = time.tv_sec, .nanoseconds = static_cast<std::uint32_t>(time.tv_nsec)};
}

// A name that the serial form could not carry counts as unknown; the number stands for it.
std::string BoundedName(std::string name) {
    return name.size() <= kMaxPrincipalName ? std::move(name) : std::string();
}

CFileInfo FromStat(const struct stat& status) {
    CFileInfo info;
    info.type = TypeOf(status.st_mode);
    info.size = static_cast<std::uint64_t>(status.st_size);
    info.owner = {.name = BoundedName(user_names().GetUserName(status.st_uid)), .id = status.st_uid};
    info.group = {.name = BoundedName(user_names().GetGroupName(status.st_gid)), .id = status.st_gid};
    info.mode = status.st_mode & 07777U;
    info.accessTime = TimeOf(status.st_atim);
    info.modificationTime = TimeOf(status.st_mtim);
    info.changeTime = TimeOf(status.st_ctim);
    return info;
}

// Takes the attributes of one file, as many as a file info can hold.
class attribute_reader_t {
  public:
    attribute_reader_t(const xattr_target_t& target, const std::string& path, CFileInfo& info,
                       meta_problems_t& problems)
        : target_(target), path_(path), info_(info), problems_(problems) {}

    void Run() {
        std::vector<std::string> names;
        if (const int error = target_.List(names); error != 0) {
            ThrowFailure(path_, error);
        }
        for (const std::string& name : names) {
            if (name == kNfs4AclAttribute || IsTransferredAttribute(name)) {
                Take(name);
            }
        }
    }

  private:
    void Take(const std::string& name) {
        std::string value;
        const int error = target_.Get(name, value);
        if (error == ENODATA) {
            return;  // removed since it was listed
        }
        if (error != 0) {
            Report(name, error);
        } else if (name == kNfs4AclAttribute) {
            info_.nfs4Acl.assign(value.begin(), value.end());
        } else if (info_.attributes.size() == kMaxAttributes ||
                   name.size() + value.size() > kMaxAttributeBytes - bytes_) {
            Report(name, E2BIG);
        } else {
            bytes_ += name.size() + value.size();
            info_.attributes.push_back({.name = name, .value = std::move(value)});
        }
    }

    void Report(const std::string& name, int error) {
        problems_.push_back({.what = "extended attribute [" + name + "]",
                             .path = path_,
                             .error = error,
                             .kind = ClassifyMetaErrno(error)});
    }

    const xattr_target_t& target_;
    const std::string& path_;
    CFileInfo& info_;
    meta_problems_t& problems_;
    std::size_t bytes_ = 0;
};

CFileInfo WithAttributes(CFileInfo info, const xattr_target_t& target, const std::string& path,
                         meta_problems_t& problems) {
    attribute_reader_t(target, path, info, problems).Run();
    return info;
}

}  // namespace

CFileInfo ReadFromDescriptor(int fd, const std::string& path, meta_problems_t& problems) {
    struct stat status;
    if (posix::sys().fstat(fd, &status) != 0) {
        ThrowFailure(path, errno);
    }
    return WithAttributes(FromStat(status), xattr_target_t::OfDescriptor(fd), path, problems);
}

CFileInfo ReadLinkInfo(int dirFd, const std::string& name) {
    struct stat status;
    if (posix::sys().fstatat(dirFd, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
        ThrowFailure(name, errno);
    }
    return FromStat(status);
}

CFileInfo ReadFromPath(const std::string& path, bool followLinks, meta_problems_t& problems) {
    struct stat status;
    const auto examine = followLinks ? posix::sys().stat : posix::sys().lstat;
    if (examine(path.c_str(), &status) != 0) {
        ThrowFailure(path, errno);
    }
    return WithAttributes(FromStat(status), xattr_target_t::OfPath(path, followLinks), path, problems);
}

}  // namespace util
