#include "tarn/hostfs/retryable_file_rstream.h"

#include <utility>

#include "mirrowen/exc/regen.h"
#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/util/clock.h"
#include "mirrowen/util/str_format.h"
#include "tarn/fs_log.h"

namespace tarn::hostfs::retryable {

CRetryableFileRstream::CRetryableFileRstream(const std::string& path, bool flag, int tries, int delay)
    : path_(path),
      flag_(flag),
      tries_(tries),
      delay_(delay),
      stream_(std::make_unique<hostfs_file_rstream_t>(path, flag)) {}

CRetryableFileRstream::~CRetryableFileRstream() = default;

std::string CRetryableFileRstream::GetPath() {
    return path_;
}

std::uint64_t CRetryableFileRstream::GetFileSize() {
    return CallRetryableFunction("GetFileSize", &CRetryableFileRstream::GetFileSizeImpl);
}

void CRetryableFileRstream::SeekTo(std::uint64_t offset) {
    CallRetryableFunction("SeekTo", &CRetryableFileRstream::SeekToImpl, offset);
}

std::uint64_t CRetryableFileRstream::ReadExc(void* buffer, std::uint64_t count) {
    return CallRetryableFunction("ReadExc", &CRetryableFileRstream::ReadExcImpl, buffer, count);
}

void CRetryableFileRstream::FinishRead() {
    stream_.reset();
}

std::uint64_t CRetryableFileRstream::GetFileSizeImpl() {
    return stream_->GetFileSize();
}

void CRetryableFileRstream::SeekToImpl(std::uint64_t offset) {
    stream_->SeekTo(offset);
    offset_ = offset;
}

std::uint64_t CRetryableFileRstream::ReadExcImpl(void* buffer, std::uint64_t count) {
    const std::uint64_t got = stream_->ReadExc(buffer, count);
    offset_ += got;
    return got;
}

void CRetryableFileRstream::CheckStreamExc() const {
    if (!stream_) {
        throw exc::CRuntimeExc("hostfs read stream was closed");
    }
}

void CRetryableFileRstream::Reopen() {
    CheckStreamExc();
    for (std::int32_t retries = 0; retries <= tries_;) {
        try {
            // The old stream, with its lock object, lives until the new one is there.
            stream_ = std::make_unique<hostfs_file_rstream_t>(path_, flag_);
            stream_->SeekTo(offset_);
            return;
        } catch (const std::exception&) {
            if (retries == tries_) {
                stream_.reset();
                exc::RegenTraceExc("Failed to reopen hostfs file.");
            }
        }
        ++retries;
        util::sleep(delay_);
    }
    stream_.reset();
    throw exc::CRuntimeExc("Reopen hostfs all tries failed");
}

template <class Result, class... Args>
Result CRetryableFileRstream::CallRetryableFunction(const char* name,
                                                    Result (CRetryableFileRstream::*function)(Args...), Args... args) {
    CheckStreamExc();
    for (std::int32_t retries = 0; retries <= tries_; ++retries) {
        try {
            return (this->*function)(args...);
        } catch (const std::exception& error) {
            if (retries == tries_) {
                fs_log.err(util::str_format("%1 all tries failed", name), error);
                throw;
            }
            fs_log.warn(util::str_format("%1 try %2/%3 failed, trying to retry", name, retries, tries_), error);
        }
        util::sleep(delay_);
        Reopen();
    }
    throw exc::CRuntimeExc("%1 all tries failed", name);
}

}  // namespace tarn::hostfs::retryable
