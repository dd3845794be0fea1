#include "agent/batch/batch_backend.h"

#include <string_view>
#include <utility>

#include "mirrowen/exc/not_impl_exc.h"
#include "mirrowen/exc/runtime_exc.h"

namespace agent::batch {

namespace {

// Of the path behind the prefix, which does not travel.
void check_length(std::string_view path) {
    const std::size_t prefix = path.find("://");
    const std::size_t length = prefix == std::string_view::npos ? path.size() : path.size() - prefix - 3;
    if (length > batch_backend_t::kMaxPathBytes) {
        throw exc::CRuntimeExc("Path of [%1] bytes is longer than the allowed [%2].", length,
                               batch_backend_t::kMaxPathBytes);
    }
}

}  // namespace

batch_backend_t::batch_backend_t(std::shared_ptr<tarn::blobfs::BlobCreater> creater)
    : blobfs_operations_t(std::move(creater)) {}

batch_backend_t::~batch_backend_t() = default;

std::shared_ptr<tarn::file_wstream_t> batch_backend_t::CreateNewFile(const std::string& path, std::uint64_t length,
                                                                     bool overwrite) {
    check_length(path);
    return blobfs_operations_t::CreateNewFile(path, length, overwrite);
}

void batch_backend_t::CreateDir(const std::string& path) {
    check_length(path);
    blobfs_operations_t::CreateDir(path);
}

void batch_backend_t::SetFileMetadata(const util::CFileInfo& info, const std::string& path) {
    check_length(path);
    blobfs_operations_t::SetFileMetadata(info, path);
}

std::shared_ptr<tarn::file_rstream_t> batch_backend_t::OpenFile4ReadWithoutWriteShare(const std::string& /*path*/) {
    throw exc::CNotImplExc("OpenFile4ReadWithoutWriteShare");
}

util::CFileInfo batch_backend_t::GetFileMetadata(const std::string& /*path*/, tarn::EFileInfoType /*type*/) {
    throw exc::CNotImplExc("GetFileMetadata");
}

bool batch_backend_t::TryGetSymLinkInfo(const std::string& /*path*/, tarn::CSymlinkData& /*out*/) {
    throw exc::CNotImplExc("TryGetSymLinkInfo");
}

void batch_backend_t::CreateSymLink(const std::string& /*path*/, const tarn::CSymlinkData& /*data*/) {
    throw exc::CNotImplExc("CreateSymLink");
}

}  // namespace agent::batch
