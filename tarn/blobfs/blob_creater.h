#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "mirrowen/cnt/array.h"
#include "mirrowen/io/mem_dev.h"
#include "mirrowen/util/file_info.h"
#include "tarn/blobfs/blob_cmd.h"
#include "tarn/blobfs/blob_fs_connnection.h"
#include "tarn/export.h"

namespace tarn::blobfs {

/// Packs changes of files into blob files: each change is a command, appended to a buffer in memory, and a buffer of
/// more than 30 MiB becomes a compressed blob file in the connection's local folder, whose name the connection is told.
/// Paths are the receiver's and stand in the blob as they are given; one of more than 65,535 bytes is not supported and
/// not noticed. One thread at a time.
///
/// An operation that makes the buffer too large writes it, so any of them may throw what memory (`std::bad_alloc`), the
/// compressor (`CLz4::compressToFile`), the file (`posix::errno_exc_t`) or the connection throws. The commands of that
/// blob are then lost; the object goes on with an empty buffer.
class TARN_API BlobCreater {
  public:
    explicit BlobCreater(std::shared_ptr<CBlobFsConnnection> connection);
    BlobCreater(const BlobCreater&) = delete;
    BlobCreater& operator=(const BlobCreater&) = delete;
    /// Writes and announces what is pending. A failure is only logged: whoever needs to hear of it calls Finish first.
    ~BlobCreater();

    /// With `overwrite` the receiver puts a new directory in place of one that is there.
    void CreateDir(const std::string& path, bool overwrite);
    /// With `overwrite` the receiver puts a new file in place of one that is there; else it goes on in that one.
    void CreateFile(const std::string& path, bool overwrite);
    /// Writes `size` bytes at `offset`, both in bytes; more than 30 MiB are several commands. None is a command, too.
    void WriteFile(const std::string& path, std::uint64_t offset, const void* data, std::uint64_t size);
    /// Throws as `util::CFileInfo::Serialize` for an info that cannot be carried; nothing is put then.
    void SetFileMetadata(const util::CFileInfo& info, const std::string& path);

    /// Writes and announces what is pending now. Whatever fails is thrown; nothing is pending afterwards either way.
    void Finish();

  private:
    using buffer_t = cnt::array_t<char, std::allocator<char>>;

    // The names that follow are those their callers know.
    // NOLINTBEGIN(bugprone-reserved-identifier)
    /// Bytes of the path that the next command carries: none when the command before it had the same.
    std::size_t _GetActualPathLength(const std::string& path);
    void _PutToFile(BlobCmd& command);
    void _OpenFile();
    void _CloseFile();
    void _NextFile();
    void _FlushToFile();
    // NOLINTEND(bugprone-reserved-identifier)

    /// Puts a command whose body is `head` and `data`.
    void Put(eBlobCmd type, const std::string& path, std::string_view head, std::string_view data);
    /// Forgets the pending commands.
    void Abandon() noexcept;

    std::shared_ptr<CBlobFsConnnection> connection_;
    std::string lastPath_;  ///< path of the command before, empty at the start of a blob
    std::string currentBlobFile_;
    std::uint64_t currentSize_ = 0;  ///< bytes of the commands in the buffer
    std::shared_ptr<io::mem_dev_tt<buffer_t>> buffer_;
};

}  // namespace tarn::blobfs
