#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "tarn/blobfs/blob_creater.h"
#include "tarn/export.h"
#include "tarn/file_wstream.h"

namespace tarn::blobfs {

/// Writes one file of the receiver's, in commands of a blob. It holds the creator, whose last blob is thus not finished
/// before the stream is gone. One thread at a time, the creator's.
class TARN_API blobfs_file_wstream_t : public file_wstream_t {
  public:
    /// Puts the command that creates the file, so that it is there even if nothing is written. Throws, as WriteExc
    /// does, what the creator throws.
    blobfs_file_wstream_t(const std::shared_ptr<BlobCreater>& creater, const std::string& targetPath, bool overwrite);
    ~blobfs_file_wstream_t() override;

    /// Any offset will do; no command comes of it.
    void SeekTo(std::uint64_t offset) override;
    std::uint64_t WriteExc(const void* buffer, std::uint64_t count) override;
    /// Refuses: `exc::CNotImplExc` "WriteZeroes", after a trace of that name.
    std::uint64_t WriteZeroes(std::uint64_t count) override;

    /// The receiver's path, without the prefix.
    std::string GetPath() override;

    /// These two do nothing: the bytes are in the creator's hands. The port is ignored.
    void Flush() override;
    void Close(std::shared_ptr<synch::completion_port_t> port) override;

  private:
    std::uint64_t position_ = 0;
    std::shared_ptr<BlobCreater> creater_;
    std::string targetPath_;
};

}  // namespace tarn::blobfs
