#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "mirrowen/io/block/volatile_zero_buf.h"
#include "mirrowen/posix/posix_file.h"
#include "tarn/export.h"
#include "tarn/file_wstream.h"

namespace tarn::hostfs {

/// Writes one host file.
///
/// A file that was created at its final size reads as zeroes until something is written, so zero runs that end below
/// that size are skipped by seeking and the file stays sparse. A run that ends exactly at it is written on purpose: the
/// last bytes are always really there. One thread at a time.
class TARN_API hostfs_file_wstream_t : public file_wstream_t {
  public:
    /// Creates the file at `length` bytes, all of them known to be zero. With `overwrite` what is at the path is
    /// deleted first (a link itself, never its target); without it `exc::CAlreadyExistsExc` "File already exists in
    /// hostfs_file_wstream_t::CreateNew()". Everything else that fails is `exc::CRuntimeExc` "Failed to create file
    /// [%1]." over its cause. `flag` is accepted and has no meaning here.
    static std::shared_ptr<hostfs_file_wstream_t> CreateNew(const std::string& path, std::uint64_t length,
                                                            bool overwrite, bool flag);

    /// Opens an existing file, whose content and length stay. With `expected` a file of another length is refused:
    /// `exc::CRuntimeExc` "The actual length [%1] of the file [%2] differs from the expected [%3].". With `zeroLength`
    /// the caller vouches that the file reads as zeroes below it. Both may be null; neither is kept. Other failures:
    /// "Failed to open file [%1].".
    static std::shared_ptr<hostfs_file_wstream_t> OpenExisting(const std::string& path, const std::uint64_t* expected,
                                                               const std::uint64_t* zeroLength);

    /// Opens an existing file and truncates or extends it to `length` bytes. What it holds is unknown, so zeroes are
    /// always written. Failures: "Failed to open file [%1].".
    static std::shared_ptr<hostfs_file_wstream_t> OpenExistingAndResize(const std::string& path, std::uint64_t length);

    /// Takes over `file`, which must be there and stand at its start; it reads as zeroes below `zeroLength`.
    hostfs_file_wstream_t(std::shared_ptr<posix::posix_file_t> file, std::uint64_t zeroLength);
    /// Closes what is open; a failure is logged as an error "Failed to close hostfs file stream".
    ~hostfs_file_wstream_t() override;

    /// Moves to `offset`, also beyond the end. Throws `posix::errno_exc_t`, or `exc::CRuntimeExc` after Close.
    void SeekTo(std::uint64_t offset) override;

    /// Writes all bytes, in pieces of at most 2147483647. Throws `exc::CRuntimeExc` "Write operation has failed. File
    /// [%1]. Size of data: [%2]." over its cause, also after Close.
    std::uint64_t WriteExc(const void* buffer, std::uint64_t count) override;

    /// Skips or writes zeroes as the class says; writing goes through the stream's own WriteExc. A skip that fails, or
    /// comes after Close, throws `exc::CRuntimeExc` "Failed to write sparse block to the file." over its cause.
    std::uint64_t WriteZeroes(std::uint64_t count) override;

    /// The path that the file was opened with.
    std::string GetPath() override;

    /// Makes content and size durable; does nothing after Close. Throws `exc::CRuntimeExc` "Unable to flush file
    /// buffers. File: [%1]." over its cause.
    void Flush() override;

    /// Flushes and closes the file, at once; the port is not used. A flush that fails leaves the file open for the
    /// destructor. Closing again does nothing.
    void Close(std::shared_ptr<synch::completion_port_t> port) override;

  private:
    posix::posix_file_t& OpenFileExc() const;
    bool SkipZeroes(std::uint64_t count);
    void NoteWrite(std::uint64_t count);

    std::shared_ptr<posix::posix_file_t> file_;  ///< empty after Close
    std::string path_;
    std::uint64_t zeroLength_;
    std::uint64_t position_ = 0;  ///< bytes written or skipped so far; seeking does not change it
    io::block::CVolatileZeroBuf zeroes_;
    std::uint64_t highWaterMark_ = 0;  ///< no byte at or beyond this offset was ever written through this stream
};

}  // namespace tarn::hostfs
