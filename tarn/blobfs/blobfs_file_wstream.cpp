#include "tarn/blobfs/blobfs_file_wstream.h"

#include "mirrowen/exc/not_impl_exc.h"
#include "tarn/fs_log.h"

namespace tarn::blobfs {

blobfs_file_wstream_t::blobfs_file_wstream_t(const std::shared_ptr<BlobCreater>& creater, const std::string& targetPath,
                                             bool overwrite)
    : creater_(creater), targetPath_(targetPath) {
    creater_->CreateFile(targetPath_, overwrite);
}

blobfs_file_wstream_t::~blobfs_file_wstream_t() = default;

void blobfs_file_wstream_t::SeekTo(std::uint64_t offset) {
    position_ = offset;
}

std::uint64_t blobfs_file_wstream_t::WriteExc(const void* buffer, std::uint64_t count) {
    creater_->WriteFile(targetPath_, position_, buffer, count);
    position_ += count;
    return count;
}

std::uint64_t blobfs_file_wstream_t::WriteZeroes(std::uint64_t /*count*/) {
    fs_log.tr("WriteZeroes");
    throw exc::CNotImplExc("WriteZeroes");
}

std::string blobfs_file_wstream_t::GetPath() {
    return targetPath_;
}

void blobfs_file_wstream_t::Flush() {}

void blobfs_file_wstream_t::Close(std::shared_ptr<synch::completion_port_t> /*port*/) {
    Flush();
}

}  // namespace tarn::blobfs
