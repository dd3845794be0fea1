#include "tarn/hostfs/retryable_hostfs_file_rstream.h"

#include "mirrowen/exc/regen.h"
#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/util/clock.h"
#include "tarn/fs_log.h"

namespace tarn::hostfs {

retryable_hostfs_file_rstream_t::retryable_hostfs_file_rstream_t(const std::string& path, int tries)
    : path_(path), tries_(tries), stream_(std::make_shared<hostfs_file_rstream_t>(path)) {}

retryable_hostfs_file_rstream_t::~retryable_hostfs_file_rstream_t() = default;

std::string retryable_hostfs_file_rstream_t::GetPath() {
    return path_;
}

std::uint64_t retryable_hostfs_file_rstream_t::GetFileSize() {
    CheckStreamExc();
    return stream_->GetFileSize();
}

void retryable_hostfs_file_rstream_t::SeekTo(std::uint64_t offset) {
    CheckStreamExc();
    offset_ = offset;
    stream_->SeekTo(offset);
}

std::uint64_t retryable_hostfs_file_rstream_t::ReadExc(void* buffer, std::uint64_t count) {
    CheckStreamExc();  // a finished stream fails here, before anything is retried
    for (std::int32_t retries = 0;; ++retries) {
        try {
            CheckStreamExc();
            const std::uint64_t got = stream_->ReadExc(buffer, count);
            offset_ += got;
            return got;
        } catch (const std::exception& error) {
            if (retries >= tries_) {
                throw;
            }
            fs_log.warn("Read failed, trying to retry", error);
        }
        util::sleep(delay_);
        Reopen(offset_);
    }
}

void retryable_hostfs_file_rstream_t::FinishRead() {
    stream_.reset();
}

void retryable_hostfs_file_rstream_t::CheckStreamExc() const {
    if (!stream_) {
        throw exc::CRuntimeExc("hostfs read stream is null");
    }
}

void retryable_hostfs_file_rstream_t::Reopen(unsigned long offset) {
    for (std::int32_t retries = 0;; ++retries) {
        try {
            stream_ = std::make_shared<hostfs_file_rstream_t>(path_);
            stream_->SeekTo(offset);
            return;
        } catch (const std::exception&) {
            if (retries >= tries_) {
                exc::RegenTraceExc("Failed to reopen hostfs file.");
            }
        }
        util::sleep(delay_);
    }
}

}  // namespace tarn::hostfs
