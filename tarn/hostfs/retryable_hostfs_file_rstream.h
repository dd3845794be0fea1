#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "tarn/export.h"
#include "tarn/file_rstream.h"
#include "tarn/hostfs/hostfs_file_rstream.h"

namespace tarn::hostfs {

/// Reads a host file on a network share: a read that fails is tried again on a newly opened file, from where the reader
/// was, after a pause of 10 seconds that blocks the caller. Size and seek are not retried. One thread at a time.
class TARN_API retryable_hostfs_file_rstream_t : public file_rstream_t {
  public:
    /// Opens the file at once; a failure is `hostfs_file_rstream_t`'s own, without a retry. A read is attempted at most
    /// `tries` + 1 times.
    retryable_hostfs_file_rstream_t(const std::string& path, int tries);
    ~retryable_hostfs_file_rstream_t() override;

    std::string GetPath() override;
    /// These two throw as CheckStreamExc and `hostfs_file_rstream_t` do.
    std::uint64_t GetFileSize() override;
    void SeekTo(std::uint64_t offset) override;

    /// Reads exactly `count` bytes. Each failure but the last leaves a warning "Read failed, trying to retry"; the last
    /// one is thrown as it is. The end of the file is a failure like any other. Throws as CheckStreamExc and Reopen do.
    std::uint64_t ReadExc(void* buffer, std::uint64_t count) override;

    /// Drops the file; everything but GetPath then fails.
    void FinishRead() override;

    /// Throws `exc::CRuntimeExc` "hostfs read stream is null" after FinishRead.
    void CheckStreamExc() const;

    /// Opens the file anew at `offset`, with up to `tries` retries of its own, each after a pause. Gives up with
    /// `exc::CRuntimeExc` "Failed to reopen hostfs file." over the cause.
    void Reopen(unsigned long offset);

  private:
    std::string path_;
    std::int32_t tries_;
    std::int32_t delay_ = 10000;  ///< milliseconds
    std::uint64_t offset_ = 0;    ///< where the reader is; a new inner stream starts at 0
    std::shared_ptr<hostfs_file_rstream_t> stream_;
};

}  // namespace tarn::hostfs
