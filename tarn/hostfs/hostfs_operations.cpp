#include "tarn/hostfs/hostfs_operations.h"

#include <utility>

#include "linuxacl/linux_acl.h"
#include "mirrowen/exc/regen.h"
#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/util/fs.h"
#include "mirrowen/util/str_format.h"
#include "tarn/fs_log.h"
#include "tarn/hostfs/hostfs_backup_media.h"
#include "tarn/hostfs/hostfs_file_rstream.h"
#include "tarn/hostfs/hostfs_file_wstream.h"
#include "tarn/hostfs/retryable_file_rstream.h"
#include "tarn/hostfs/retryable_hostfs_file_rstream.h"

namespace tarn::hostfs {
namespace {

constexpr int kShareTries = 3;
constexpr int kSharePauseMs = 10000;

util::CFileInfo ReadAttributes(const std::string& path) {
    try {
        return util::CFileInfo::getInfoForFile(path, false);
    } catch (const std::exception&) {
        exc::RegenTraceExc("Failed to get file info for file  [%1].", path);  // both blanks are meant
    }
}

void TryReadAcl(const std::string& path, util::CFileInfo& info) {
    try {
        info.posixAcl = linuxacl::CLinuxAcl::GetAclForFile(path);
    } catch (const std::exception& error) {
        fs_log.warn(util::str_format("Failed to get Acl for file [%1].", path), error);
    }
}

}  // namespace

hostfs_operations_t::hostfs_operations_t() = default;

hostfs_operations_t::~hostfs_operations_t() = default;

std::shared_ptr<file_rstream_t> hostfs_operations_t::OpenFile4Read(const std::string& path) {
    if (util::fs_is_smb_path(path)) {
        return std::make_shared<retryable_hostfs_file_rstream_t>(path, kShareTries);
    }
    return std::make_shared<hostfs_file_rstream_t>(path);
}

std::shared_ptr<file_rstream_t> hostfs_operations_t::OpenFile4ReadWithoutWriteShare(const std::string& path) {
    if (util::fs_is_smb_path(path)) {
        return std::make_shared<retryable::CRetryableFileRstream>(path, true, kShareTries, kSharePauseMs);
    }
    return std::make_shared<hostfs_file_rstream_t>(path, true);
}

std::shared_ptr<file_rstream_t> hostfs_operations_t::OpenDisk4Read(const std::string& path) {
    throw exc::CRuntimeExc("HostFS doesn't support disk operations. Disk path: [%1].", path);
}

std::shared_ptr<file_wstream_t> hostfs_operations_t::OpenFile4Write(const std::string& path, std::uint64_t length) {
    return hostfs_file_wstream_t::OpenExistingAndResize(path, length);
}

std::shared_ptr<file_wstream_t> hostfs_operations_t::CreateNewFile(const std::string& path, std::uint64_t length,
                                                                   bool overwrite) {
    return hostfs_file_wstream_t::CreateNew(path, length, overwrite, true);
}

void hostfs_operations_t::CreateDir(const std::string& path) {
    util::fs_make_directory(util::fs_merge_path(path, ""));
}

bool hostfs_operations_t::IsObjectExist(const std::string& path) {
    return util::fs_file_exists(path);
}

void hostfs_operations_t::DeleteFile(const std::string& path) {
    util::fs_file_delete(path);
}

bool hostfs_operations_t::IsRenameSupported() const {
    return true;
}

void hostfs_operations_t::RenameFile(const std::string& oldPath, const std::string& newPath) {
    util::CPathUtils::rename(oldPath, newPath);
}

std::shared_ptr<backup_media_t> hostfs_operations_t::GetBackupMedia() {
    return std::make_shared<hostfs_backup_media_t>();
}

util::CFileInfo hostfs_operations_t::GetFileMetadata(const std::string& path, EFileInfoType type) {
    util::CFileInfo info;
    if (type == EFileInfoType::eFileInfoAclOnly) {
        info.posixAcl = linuxacl::CLinuxAcl::GetAclForFile(path);
        return info;
    }
    info = ReadAttributes(path);
    if (!info.isSymlink()) {
        TryReadAcl(path, info);
    }
    if (type != EFileInfoType::eFileInfoBasic) {
        // Asked for in full, the list has to be there: this failure is the caller's.
        info.posixAcl = linuxacl::CLinuxAcl::GetAclForFile(path);
    }
    return info;
}

void hostfs_operations_t::SetFileMetadata(const util::CFileInfo& info, const std::string& path) {
    try {
        info.applyMetaForFile(path);
        if (!info.nfs4Acl.empty()) {
            util::setFileNaclSafe(path, info.nfs4Acl);
        }
        linuxacl::CLinuxAcl::SetAclForFile(path, info.posixAcl);
    } catch (const std::exception& error) {
        fs_log.warn(util::str_format("Failed to set metadata for file [%1].", path), error);
    }
}

bool hostfs_operations_t::TryGetSymLinkInfo(const std::string& path, CSymlinkData& out) {
    CSymlinkData record;
    try {
        record = CSymlinkData::fromPath(path);
    } catch (const std::exception&) {
        return false;  // not a link, or nothing there: both are the answer "no"
    }
    out = std::move(record);
    return out.IsValid();
}

void hostfs_operations_t::CreateSymLink(const std::string& path, const CSymlinkData& data) {
    data.Create(path);
}

}  // namespace tarn::hostfs
