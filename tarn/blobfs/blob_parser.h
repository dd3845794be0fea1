#pragma once

#include <cstdint>
#include <exception>
#include <functional>
#include <list>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "mirrowen/posix/posix_file.h"
#include "tarn/blobfs/blob_layout.h"
#include "tarn/export.h"

namespace tarn::blobfs {

/// Replays a blob file against the local file system, with the paths as they stand in it: whoever runs it trusts the
/// sender as far as this process may write. New files are created exclusively; a link that stands in a file's place is
/// replaced or refused, never written through. Links on the way to a path are followed.
///
/// Keeps nothing between calls; one thread at a time.
class TARN_API BlobParser {
  public:
    /// Called beside the log line of each failure that is counted, with the path that the commands were for: empty
    /// when they named none. The exception lives as long as the call. Must not throw.
    using observer_t = std::function<void(const std::string& path, const std::exception& failure)>;

    explicit BlobParser(observer_t observer = {});
    ~BlobParser();

    /// Applies the blob file at `path` and deletes it, also when commands failed; an empty file is deleted, no more.
    ///
    /// The commands for one path are a list. A command that fails is logged and counted and the list goes on; one that
    /// makes no sense (no path, unknown type, a body that is too short or reaches past its command) is logged and
    /// counted and ends its list. The other lists are applied either way.
    ///
    /// Every failure is `exc::CRuntimeExc` "Failed to parse file [%1]." with its cause:
    /// - "%1 fails found ." when commands failed;
    /// - "File too big! [%1]." above 2,147,483,648 bytes, "Blob file is not a regular file.", what
    /// `CLz4::decompressFromFile` throws, and what
    ///   `blob_command_reader_t` says of commands whose lengths make no sense: nothing was changed then, the blob file
    ///   stays;
    /// - `posix::errno_exc_t` when the blob file cannot be examined or deleted.
    void Execute(const std::string& path);

  private:
    // The names of the operations are as their readers know them.
    // NOLINTBEGIN(bugprone-reserved-identifier)

    /// Applies the commands of one path and empties the list; the headers point into the payload. Returns the number
    /// of failures.
    std::uint32_t _ApplyListCmds(std::list<const BlobCmd_Header*>& headers);

    // Each of these returns 0, or 1 for a failure that it has reported.
    std::uint32_t _CreateFolder(const std::string& path, const BlobBody_CreateDir* body);
    std::uint32_t _CreateFile(const std::string& path, const BlobBody_CreateFile* body);
    /// Keeps the file open for the writes that follow.
    std::uint32_t _CreateFileOptimized(const std::string& path, const BlobBody_CreateFile* body,
                                       std::shared_ptr<posix::posix_file_t>& openFile);
    /// The data stands behind the body.
    std::uint32_t _WriteFile(const std::string& path, const BlobBody_WriteFile* body);
    std::uint32_t _WriteFileOptimized(const std::string& path, const BlobBody_WriteFile* body,
                                      std::shared_ptr<posix::posix_file_t>& openFile);
    /// The file info stands behind the body.
    std::uint32_t _SetFileMetadata(const std::string& path, const BlobBody_SetFileMetadata* body);

    // NOLINTEND(bugprone-reserved-identifier)

    /// The number of failures.
    std::uint32_t ApplyFile(const std::string& path);
    std::uint32_t ApplyPayload(std::span<const char> payload);
    std::uint32_t ApplyCommand(const BlobCmd_Header& header, const std::string& path,
                               std::shared_ptr<posix::posix_file_t>& openFile);
    /// Logs the failure and tells the observer; returns 1.
    std::uint32_t Report(std::string_view text, const std::string& path, const std::exception& failure) const;

    const observer_t observer_;
};

}  // namespace tarn::blobfs
