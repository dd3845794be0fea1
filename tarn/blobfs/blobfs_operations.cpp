#include "tarn/blobfs/blobfs_operations.h"

#include <string_view>
#include <utility>

#include "mirrowen/exc/not_impl_exc.h"
#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/logging/trace.h"
#include "tarn/blobfs/blobfs_file_wstream.h"
#include "tarn/fs_log.h"

namespace tarn::blobfs {

namespace {

constexpr std::string_view kSeparator = "://";

[[noreturn]] void Refuse(const char* operation) {
    fs_log.tr(operation);
    throw exc::CNotImplExc(operation);
}

}  // namespace

std::map<std::string, std::shared_ptr<blobfs_operations_t>> mapBlobFsOps;

blobfs_operations_t::blobfs_operations_t(std::shared_ptr<BlobCreater> creater) : creater_(std::move(creater)) {
    fs_log.tr("blobfs_operations_t");
}

blobfs_operations_t::~blobfs_operations_t() {
    fs_log.tr("~blobfs_operations_t");
}

bool blobfs_operations_t::IsBlobFsPath(const std::string& path) {
    std::string prefix;
    return _GetPrefix(path, prefix) && mapBlobFsOps.contains(prefix);
}

std::shared_ptr<blobfs_operations_t> blobfs_operations_t::GetByFsPath(const std::string& path) {
    std::string prefix;
    if (!_GetPrefix(path, prefix)) {
        throw exc::CRuntimeExc("Invalid prefix in fs_path [%1]", path);
    }
    const auto found = mapBlobFsOps.find(prefix);
    if (found == mapBlobFsOps.end()) {
        throw exc::CRuntimeExc("Cannot find fs_operation object by prefix [%1].", prefix);
    }
    return found->second;
}

void blobfs_operations_t::CloseBlobFsOp(const std::string& path) {
    logging::trace_t trace(fs_log, "CloseBlobFsOp");
    std::string prefix;
    if (!_GetPrefix(path, prefix)) {
        throw exc::CRuntimeExc("Invalid prefix in fs_path [%1]", path);
    }
    fs_log.tr("Close by prefix [%1].", prefix);
    const auto found = mapBlobFsOps.find(prefix);
    if (found == mapBlobFsOps.end()) {
        throw exc::CRuntimeExc("Cannot find prefix [%1].", prefix);
    }
    // The map is whole again before the backend ends, since its blob is announced then to code that may look here.
    std::shared_ptr<blobfs_operations_t> closing = std::move(found->second);
    mapBlobFsOps.erase(found);
    closing.reset();
    trace.ok();
}

std::shared_ptr<file_rstream_t> blobfs_operations_t::OpenFile4Read(const std::string& /*path*/) {
    Refuse("OpenFile4Read");
}

std::shared_ptr<file_rstream_t> blobfs_operations_t::OpenDisk4Read(const std::string& /*path*/) {
    Refuse("OpenDisk4Read");
}

std::shared_ptr<file_wstream_t> blobfs_operations_t::OpenFile4Write(const std::string& /*path*/,
                                                                    std::uint64_t /*length*/) {
    Refuse("OpenFile4Write");
}

std::shared_ptr<file_wstream_t> blobfs_operations_t::CreateNewFile(const std::string& path, std::uint64_t /*length*/,
                                                                   bool overwrite) {
    return std::make_shared<blobfs_file_wstream_t>(creater_, TargetOf(path), overwrite);
}

void blobfs_operations_t::CreateDir(const std::string& path) {
    creater_->CreateDir(TargetOf(path), false);
}

bool blobfs_operations_t::IsObjectExist(const std::string& /*path*/) {
    fs_log.tr("IsObjectExist");
    return false;
}

void blobfs_operations_t::DeleteFile(const std::string& /*path*/) {
    Refuse("DeleteFile");
}

bool blobfs_operations_t::IsRenameSupported() const {
    Refuse("IsRenameSupported");
}

void blobfs_operations_t::RenameFile(const std::string& /*oldPath*/, const std::string& /*newPath*/) {
    Refuse("RenameFile");
}

std::shared_ptr<backup_media_t> blobfs_operations_t::GetBackupMedia() {
    Refuse("GetBackupMedia");
}

void blobfs_operations_t::SetFileMetadata(const util::CFileInfo& info, const std::string& path) {
    creater_->SetFileMetadata(info, TargetOf(path));
}

util::CFileInfo blobfs_operations_t::GetFileMetadata(const std::string& /*path*/) {
    Refuse("GetFileMetadata");
}

bool blobfs_operations_t::TryGetSymLinkInfo(const std::string& /*path*/, std::string& /*target*/) {
    Refuse("TryGetSymLinkInfo");
}

void blobfs_operations_t::CreateSymLink(const std::string& /*path*/, const std::string& /*target*/) {
    Refuse("CreateSymLink");
}

// NOLINTBEGIN(bugprone-reserved-identifier)

bool blobfs_operations_t::_GetPrefix(const std::string& path, std::string& prefix) {
    const std::size_t at = path.find(kSeparator);
    if (at == std::string::npos) {
        return false;
    }
    prefix = path.substr(0, at + kSeparator.size());
    return true;
}

bool blobfs_operations_t::_GetTargetPath(const std::string& path, std::string& target) {
    const std::size_t at = path.find(kSeparator);
    if (at == std::string::npos) {
        return false;
    }
    target = path.substr(at + kSeparator.size());
    return true;
}

// NOLINTEND(bugprone-reserved-identifier)

std::string blobfs_operations_t::TargetOf(const std::string& path) {
    std::string target;
    if (!_GetTargetPath(path, target)) {
        throw exc::CRuntimeExc("Invalid prefix for file [%1]", path);
    }
    return target;
}

}  // namespace tarn::blobfs
