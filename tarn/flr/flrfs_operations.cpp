#include "tarn/flr/flrfs_operations.h"

#include <utility>

#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/logging/trace.h"
#include "mirrowen/util/str.h"
#include "tarn/fs_log.h"
#include "tarn/hostfs/hostfs_operations.h"
#include "tarn/tarn_context.h"

namespace tarn {
namespace {

constexpr std::string_view kPrefix = "FlrFS://";
constexpr std::string_view kGetSymLink = "<debug>: flrfs_operations_t::TryGetSymLinkInfo(): ";

[[noreturn]] void RefuseWrite() {
    throw exc::CRuntimeExc("FLR FS is read-only platform.");
}

/// The path on the view, without the prefix.
std::string ViewPath(const std::string& path) {
    if (!flrfs_operations_t::IsFlrFsPath(path)) {
        throw exc::CRuntimeExc("Path is not an FLR FS path.");
    }
    return path.substr(kPrefix.size());
}

std::string Resolve(const std::string& path, view_resolver_t::ELastLink lastLink) {
    const auto rules = CTarnContext::Instance().GetFLRContext();
    return view_resolver_t(*rules).Resolve(ViewPath(path), lastLink);
}

void RemapTarget(CSymlinkData& link, const std::string& path, const std::string& realPath) {
    const std::string target(link);
    fs_log.info("%1path = %2, realPath = %3, linkContentsPath = %4", kGetSymLink, path, realPath, target);
    if (!util::str_is_starts_with(target, "/")) {
        return;
    }
    fs_log.info("%1util::str_is_starts_with(linkContentsPath, \"/\") == true", kGetSymLink);
    link.SetTarget(flrfs_operations_t::MapPathToRealFs(flrfs_operations_t::GetFlrFsPrefix() + target));
    fs_log.info("Remapped link to path: [%1].", std::string(link));
}

}  // namespace

flrfs_operations_t::flrfs_operations_t() : inner_(std::make_shared<hostfs::hostfs_operations_t>()) {}

flrfs_operations_t::flrfs_operations_t(std::shared_ptr<fs_operations_t> inner) : inner_(std::move(inner)) {}

flrfs_operations_t::~flrfs_operations_t() = default;

std::string flrfs_operations_t::GetFlrFsPrefix() {
    return std::string(kPrefix);
}

bool flrfs_operations_t::IsFlrFsPath(const std::string& path) {
    return util::str_is_starts_with(path, kPrefix);
}

std::string flrfs_operations_t::MapPathToRealFs(const std::string& path) {
    const std::string viewPath = ViewPath(path);
    logging::trace_t trace(fs_log, "Using FLR context to map file path to real files");
    fs_log.info("Original file path (on mounted FS): '%1'.", viewPath);
    const auto rules = CTarnContext::Instance().GetFLRContext();
    std::string realPath = view_resolver_t::MapExc(*rules, view_resolver_t::Normalise(viewPath));
    fs_log.info("Mapped file path {on real FS}: '%1'.", realPath);
    trace.ok();
    return realPath;
}

std::shared_ptr<file_rstream_t> flrfs_operations_t::OpenFile4Read(const std::string& path) {
    MapPathToRealFs(path);
    CSymlinkData link;
    if (TryGetSymLinkInfo(path, link)) {
        fs_log.info("File [%1] is a symbolic link. Link target: [%2].", path, std::string(link));
    }
    // The walk ends at the link's target, or at the mapped path itself when no link is on the way.
    return inner_->OpenFile4Read(Resolve(path, view_resolver_t::ELastLink::eFollow));
}

std::shared_ptr<file_rstream_t> flrfs_operations_t::OpenFile4ReadWithoutWriteShare(const std::string& path) {
    return OpenFile4Read(path);
}

std::shared_ptr<file_rstream_t> flrfs_operations_t::OpenDisk4Read(const std::string& /*path*/) {
    throw exc::CRuntimeExc("Disks are not supported by FLR FS platform.");
}

std::shared_ptr<file_wstream_t> flrfs_operations_t::OpenFile4Write(const std::string& /*path*/,
                                                                   std::uint64_t /*length*/) {
    RefuseWrite();
}

std::shared_ptr<file_wstream_t> flrfs_operations_t::CreateNewFile(const std::string& /*path*/, std::uint64_t /*length*/,
                                                                  bool /*overwrite*/) {
    RefuseWrite();
}

void flrfs_operations_t::CreateDir(const std::string& /*path*/) {
    RefuseWrite();
}

bool flrfs_operations_t::IsObjectExist(const std::string& path) {
    MapPathToRealFs(path);
    return inner_->IsObjectExist(Resolve(path, view_resolver_t::ELastLink::eKeep));
}

void flrfs_operations_t::DeleteFile(const std::string& /*path*/) {
    RefuseWrite();
}

bool flrfs_operations_t::IsRenameSupported() const {
    return false;
}

void flrfs_operations_t::RenameFile(const std::string& /*oldPath*/, const std::string& /*newPath*/) {
    RefuseWrite();
}

std::shared_ptr<backup_media_t> flrfs_operations_t::GetBackupMedia() {
    throw exc::CRuntimeExc("Not supported.");
}

util::CFileInfo flrfs_operations_t::GetFileMetadata(const std::string& path, EFileInfoType type) {
    const std::string realPath = MapPathToRealFs(path);
    fs_log.info("<debug>: flrfs_operations_t::GetFileMetadata(): filePath = %1, realPath = %2", path, realPath);
    return inner_->GetFileMetadata(Resolve(path, view_resolver_t::ELastLink::eKeep), type);
}

void flrfs_operations_t::SetFileMetadata(const util::CFileInfo& /*info*/, const std::string& /*path*/) {
    RefuseWrite();
}

bool flrfs_operations_t::TryGetSymLinkInfo(const std::string& path, CSymlinkData& out) {
    const std::string realPath = MapPathToRealFs(path);
    fs_log.info("%1path = %2, realPath = %3", kGetSymLink, path, realPath);
    if (!inner_->TryGetSymLinkInfo(Resolve(path, view_resolver_t::ELastLink::eKeep), out)) {
        return false;
    }
    if (out.IsPosix()) {
        RemapTarget(out, path, realPath);
    }
    return true;
}

void flrfs_operations_t::CreateSymLink(const std::string& /*path*/, const CSymlinkData& /*data*/) {
    RefuseWrite();
}

}  // namespace tarn
