#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "mirrowen/posix/posix_file.h"
#include "tarn/export.h"
#include "tarn/file_rstream.h"
#include "tarn/hostfs/hostfs_file_lock.h"

namespace tarn::hostfs {

/// Reads one host file. Opens it when it is made and closes it at FinishRead or at its own end. One thread at a time.
class TARN_API hostfs_file_rstream_t : public file_rstream_t {
  public:
    /// Opens the file; `withoutWriteShare` also takes its lock object. Failures, a directory included, throw
    /// `exc::CRuntimeExc` "Failed to open file [%1] for reading." over the cause.
    explicit hostfs_file_rstream_t(const std::string& path, bool withoutWriteShare = false);
    ~hostfs_file_rstream_t() override;

    /// The path that it was made with.
    std::string GetPath() override;

    /// Asked of the open file at every call, so it follows a writer. Throws `posix::errno_exc_t`, or
    /// `exc::CRuntimeExc` after FinishRead, as SeekTo does.
    std::uint64_t GetFileSize() override;

    /// Moves to `offset`, also beyond the end.
    void SeekTo(std::uint64_t offset) override;

    /// Reads exactly `count` bytes. Fewer, any other failure, and a read after FinishRead throw `exc::CRuntimeExc`
    /// "Read operation has failed. File: [%1]. Size of data: [%2]." over the cause; the position is then undefined.
    std::uint64_t ReadExc(void* buffer, std::uint64_t count) override;

    /// Releases lock and file; again does nothing.
    void FinishRead() override;

  private:
    void OpenFileForRead(const std::string& path, bool withoutWriteShare);
    posix::posix_file_t& OpenFileExc() const;

    std::shared_ptr<posix::posix_file_t> file_;  ///< empty after FinishRead
    std::string path_;
    std::shared_ptr<hostfs_file_lock_t> lock_;  ///< only without write sharing
};

}  // namespace tarn::hostfs
