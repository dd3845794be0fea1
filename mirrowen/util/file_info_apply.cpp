#include "mirrowen/util/file_info_apply.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <optional>
#include <utility>

#include "mirrowen/posix/syscalls.h"
#include "mirrowen/posix/unique_fd.h"
#include "mirrowen/util/attribute_names.h"
#include "mirrowen/util/meta_target.h"
#include "mirrowen/util/name_service.h"

namespace util {

namespace {

constexpr std::uint32_t kKeep = ~std::uint32_t{0};

// Carries one set of attributes over to one target, step by step.
class applier_t {
  public:
    applier_t(const meta_target_t& target, const std::string& path, const CFileInfo& info,
              const apply_options_t& options)
        : target_(target), path_(path), info_(info), options_(options) {}

    apply_result_t Run() {
        if (!info_.isSet()) {
            return {};
        }
        struct stat status;
        if (const int error = target_.Examine(status); error != 0) {
            Report("attributes", error);
        } else if (S_ISLNK(status.st_mode) != info_.isSymlink()) {
            Report("attributes of another type", ELOOP);
        } else {
            ApplyOwner(status);
            ApplyAttributes();
            ApplyMode(S_ISDIR(status.st_mode));
            ApplyTimes();
        }
        return std::move(result_);
    }

  private:
    void Report(std::string what, int error) { Report(std::move(what), error, ClassifyMetaErrno(error)); }

    void Report(std::string what, int error, EMetaProblem kind) {
        result_.problems.push_back({.what = std::move(what), .path = path_, .error = error, .kind = kind});
    }

    using find_function_t = std::optional<std::uint32_t> (IUserNames::*)(const std::string&);

    std::uint32_t Resolve(const SPrincipal& principal, find_function_t find, const std::string& what) {
        if (options_.owner == EOwnerSource::eNumber || principal.name.empty()) {
            return principal.id;
        }
        if (const auto id = (user_names().*find)(principal.name)) {
            return *id;
        }
        Report(what + " [" + principal.name + "]", 0, EMetaProblem::eNoOwner);
        return principal.id;
    }

    void ApplyOwner(const struct stat& status) {
        const std::uint32_t owner = Resolve(info_.owner, &IUserNames::FindUser, "owner");
        const std::uint32_t group = Resolve(info_.group, &IUserNames::FindGroup, "group");
        // All ones would mean "keep" to the kernel, and pass for success.
        ownerSet_ = owner == status.st_uid;
        groupSet_ = group == status.st_gid;
        if (!ownerSet_ && !groupSet_ && owner != kKeep && group != kKeep) {
            ownerSet_ = groupSet_ = target_.SetOwner(owner, group) == 0;
        }
        // One of the two may be allowed where both are not: a file's owner may give it to a group of theirs.
        SetPart(ownerSet_, owner, owner, kKeep, "owner");
        SetPart(groupSet_, group, kKeep, group, "group");
    }

    void SetPart(bool& done, std::uint32_t wanted, uid_t owner, gid_t group, const char* what) {
        if (done) {
            return;
        }
        const int error = wanted == kKeep ? EINVAL : target_.SetOwner(owner, group);
        done = error == 0;
        if (!done) {
            // EINVAL: the number has no meaning in this user namespace.
            Report(what, error, error == EINVAL ? EMetaProblem::eNoOwner : ClassifyMetaErrno(error));
        }
    }

    void ApplyAttributes() {
        const xattr_target_t* const attributes = target_.Attributes();
        if (attributes != nullptr && options_.removeOtherAttributes) {
            RemoveOthers(*attributes);
        }
        for (const SExtendedAttribute& attribute : info_.attributes) {
            // What a peer sends beyond the transferable names is not for us to set.
            const int error = attributes == nullptr || !IsTransferredAttribute(attribute.name)
                                  ? ENOTSUP
                                  : attributes->Set(attribute.name, attribute.value.data(), attribute.value.size());
            ReportAttribute(attribute.name, error);
        }
        if (!info_.nfs4Acl.empty()) {
            const std::string name(kNfs4AclAttribute);
            ReportAttribute(name, attributes == nullptr
                                      ? ENOTSUP
                                      : attributes->Set(name, info_.nfs4Acl.data(), info_.nfs4Acl.size()));
        }
    }

    void RemoveOthers(const xattr_target_t& attributes) {
        std::vector<std::string> names;
        if (const int error = attributes.List(names); error != 0) {
            Report("extended attributes", error);
            return;
        }
        for (const std::string& name : names) {
            const bool wanted = std::any_of(info_.attributes.begin(), info_.attributes.end(),
                                            [&name](const SExtendedAttribute& known) { return known.name == name; });
            if (!wanted && IsTransferredAttribute(name)) {
                const int error = attributes.Remove(name);
                ReportAttribute(name, error == ENODATA ? 0 : error);
            }
        }
    }

    void ReportAttribute(const std::string& name, int error) {
        if (error != 0) {
            // EINVAL: a list whose entries have no meaning here.
            Report("extended attribute [" + name + "]", error,
                   error == EINVAL ? EMetaProblem::eUnsupported : ClassifyMetaErrno(error));
        }
    }

    // The set-ID bits of a directory grant nobody's rights, those of anything else do.
    void ApplyMode(bool isDirectory) {
        if (info_.isSymlink()) {
            return;
        }
        mode_t mode = info_.mode & 07777U;
        if (!isDirectory) {
            const mode_t denied = (ownerSet_ ? 0U : S_ISUID | S_ISGID) | (groupSet_ ? 0U : S_ISGID);
            if ((mode & denied) != 0) {
                Report("set-ID bits of the mode", EPERM);
                mode &= ~denied;
            }
        }
        if (const int error = target_.SetMode(mode); error != 0) {
            Report("mode", error);
        }
    }

    void ApplyTimes() {
        const struct timespec times[2] = {TimeOf(info_.accessTime), TimeOf(info_.modificationTime)};
        if (const int error = target_.SetTimes(times); error != 0) {
            Report("times", error);
        }
    }

    static struct timespec TimeOf(const SFileTime& time) {
        return {.tv_sec = time.seconds, .tv_nsec = static_cast<long>(time.nanoseconds)};
    }

    const meta_target_t& target_;
    const std::string& path_;
    const CFileInfo& info_;
    const apply_options_t& options_;
    bool ownerSet_ = false;
    bool groupSet_ = false;
    apply_result_t result_;
};

// A file or directory as a descriptor; none for what is better reached by name: links, special files (opening a device
// may do things) and files that we may not read.
posix::unique_fd_t OpenPlain(const std::string& path) {
    struct stat status;
    if (posix::sys().lstat(path.c_str(), &status) != 0 || !(S_ISREG(status.st_mode) || S_ISDIR(status.st_mode))) {
        return {};
    }
    return posix::unique_fd_t(posix::sys().open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0));
}

}  // namespace

apply_result_t ApplyToDescriptor(int fd, const std::string& path, const CFileInfo& info,
                                 const apply_options_t& options) {
    const descriptor_target_t target(fd);
    return applier_t(target, path, info, options).Run();
}

apply_result_t ApplyToLink(int dirFd, const std::string& name, const CFileInfo& info, const apply_options_t& options) {
    const name_target_t target(dirFd, name);
    return applier_t(target, name, info, options).Run();
}

apply_result_t ApplyToPath(const std::string& path, const CFileInfo& info, const apply_options_t& options) {
    if (const posix::unique_fd_t file = OpenPlain(path)) {
        return ApplyToDescriptor(file.get(), path, info, options);
    }
    return ApplyToLink(AT_FDCWD, path, info, options);
}

}  // namespace util
