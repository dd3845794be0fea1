#include "tarn/relative/relative_fs_operations.h"

#include <utility>

#include "corvel/corvel_ctx.h"
#include "mirrowen/exc/already_exists_exc.h"
#include "mirrowen/exc/regen.h"
#include "mirrowen/exc/runtime_exc.h"

namespace tarn::relative {
namespace {

/// Runs a call, mapping included, and puts `text` with the caller's paths over its failure.
template <class Call, class... Paths>
auto Explained(std::string_view text, const Call& call, const Paths&... paths) {
    try {
        return call();
    } catch (const exc::CAlreadyExistsExc&) {
        throw;
    } catch (...) {
        exc::RegenExc(text, paths...);
    }
}

}  // namespace

relative_fs_operations::relative_fs_operations(std::shared_ptr<fs_operations_t> inner) : inner_(std::move(inner)) {}

relative_fs_operations::~relative_fs_operations() = default;

std::string relative_fs_operations::GetAbsolutePath(const std::string& path) {
    return CCorvelCtx::Inst()->TryMapRelativePath(path);
}

std::shared_ptr<file_rstream_t> relative_fs_operations::OpenFile4Read(const std::string& path) {
    return Explained(
        "Failed to open file for read by relative path [%1].",
        [&] { return inner_->OpenFile4Read(GetAbsolutePath(path)); }, path);
}

std::shared_ptr<file_rstream_t> relative_fs_operations::OpenFile4ReadWithoutWriteShare(const std::string& path) {
    return inner_->OpenFile4ReadWithoutWriteShare(path);  // unmapped, and meant so
}

std::shared_ptr<file_rstream_t> relative_fs_operations::OpenDisk4Read(const std::string& path) {
    return Explained(
        "Failed to open disk for read by relative path [%1].",
        [&] { return inner_->OpenDisk4Read(GetAbsolutePath(path)); }, path);
}

std::shared_ptr<file_wstream_t> relative_fs_operations::OpenFile4Write(const std::string& path, std::uint64_t length) {
    return Explained(
        "Failed to open file for write by relative path [%1].",
        [&] { return inner_->OpenFile4Write(GetAbsolutePath(path), length); }, path);
}

std::shared_ptr<file_wstream_t> relative_fs_operations::CreateNewFile(const std::string& path, std::uint64_t length,
                                                                      bool overwrite) {
    return Explained(
        "Failed to create new file by relative path [%1].",
        [&] { return inner_->CreateNewFile(GetAbsolutePath(path), length, overwrite); }, path);
}

void relative_fs_operations::CreateDir(const std::string& path) {
    inner_->CreateDir(GetAbsolutePath(path));
}

bool relative_fs_operations::IsObjectExist(const std::string& path) {
    return Explained(
        "Failed to check whether the file exists using relative path [%1].",
        [&] { return inner_->IsObjectExist(GetAbsolutePath(path)); }, path);
}

void relative_fs_operations::DeleteFile(const std::string& path) {
    Explained(
        "Failed to delete file by relative path [%1].", [&] { inner_->DeleteFile(GetAbsolutePath(path)); }, path);
}

bool relative_fs_operations::IsRenameSupported() const {
    return inner_->IsRenameSupported();
}

void relative_fs_operations::RenameFile(const std::string& oldPath, const std::string& newPath) {
    const auto rename = [&] {
        const std::string from = GetAbsolutePath(oldPath);
        inner_->RenameFile(from, GetAbsolutePath(newPath));
    };
    Explained("Failed to rename file by relative path [%1] to [%2].", rename, oldPath, newPath);
}

std::shared_ptr<backup_media_t> relative_fs_operations::GetBackupMedia() {
    return inner_->GetBackupMedia();
}

util::CFileInfo relative_fs_operations::GetFileMetadata(const std::string& path, EFileInfoType type) {
    return inner_->GetFileMetadata(GetAbsolutePath(path), type);
}

void relative_fs_operations::SetFileMetadata(const util::CFileInfo& info, const std::string& path) {
    inner_->SetFileMetadata(info, GetAbsolutePath(path));
}

bool relative_fs_operations::TryGetSymLinkInfo(const std::string& /*path*/, CSymlinkData& /*out*/) {
    return false;
}

void relative_fs_operations::CreateSymLink(const std::string& /*path*/, const CSymlinkData& /*data*/) {
    throw exc::CRuntimeExc("Not supported.");
}

}  // namespace tarn::relative
