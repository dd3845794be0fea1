#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "tarn/export.h"
#include "tarn/file_rstream.h"
#include "tarn/hostfs/hostfs_file_rstream.h"

namespace tarn::hostfs::retryable {

/// Reads a host file on a network share: size, seek and read that fail are tried again on a newly opened file, from
/// where the reader was, after a pause that blocks the caller. One thread at a time.
///
/// A failure that is retried leaves a warning "%1 try %2/%3 failed, trying to retry" with the operation's name, the try
/// (counted from 0) and the number of retries; the last one an error "%1 all tries failed", and is thrown as it is.
class TARN_API CRetryableFileRstream : public file_rstream_t {
  public:
    /// Opens the file at once, `flag` saying whether without write sharing; a failure is `hostfs_file_rstream_t`'s own,
    /// without a retry. An operation is attempted at most `tries` + 1 times, with `delay` milliseconds in between; with
    /// negative `tries` not at all: `exc::CRuntimeExc` "%1 all tries failed".
    CRetryableFileRstream(const std::string& path, bool flag, int tries, int delay);
    ~CRetryableFileRstream() override;

    std::string GetPath() override;
    /// These three throw the last failure, or as CheckStreamExc and Reopen do.
    std::uint64_t GetFileSize() override;
    void SeekTo(std::uint64_t offset) override;
    /// Reads exactly `count` bytes; the end of the file is a failure like any other.
    std::uint64_t ReadExc(void* buffer, std::uint64_t count) override;

    /// Closes the file; everything but GetPath then fails.
    void FinishRead() override;

    /// Throws `exc::CRuntimeExc` "hostfs read stream was closed" after FinishRead, or when a reopen has given up.
    void CheckStreamExc() const;

    /// Opens the file anew where the reader is, with up to `tries` retries of its own. Gives up, and leaves the stream
    /// closed, with `exc::CRuntimeExc` "Failed to reopen hostfs file." over the cause; with negative tries "Reopen
    /// hostfs all tries failed".
    void Reopen();

  private:
    std::uint64_t GetFileSizeImpl();
    void SeekToImpl(std::uint64_t offset);
    std::uint64_t ReadExcImpl(void* buffer, std::uint64_t count);

    template <class Result, class... Args>
    Result CallRetryableFunction(const char* name, Result (CRetryableFileRstream::*function)(Args...), Args... args);

    std::string path_;
    bool flag_;
    std::int32_t tries_;
    std::int32_t delay_;
    std::uint64_t offset_ = 0;  ///< where the reader is; a new inner stream starts at 0
    std::unique_ptr<hostfs_file_rstream_t> stream_;
};

}  // namespace tarn::hostfs::retryable
