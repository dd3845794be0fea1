#pragma once

#include <cstdint>
#include <string>

#include "tarn/export.h"

namespace tarn {

/// A sequential read stream over one file of any backend. Handed out and held by `std::shared_ptr`; used by one thread
/// at a time. Failures throw and name the file.
class TARN_API file_rstream_t {
  public:
    virtual ~file_rstream_t();

    /// The path that the stream was opened on, as the backend keeps it.
    virtual std::string GetPath() = 0;

    /// Size of the file in bytes.
    virtual std::uint64_t GetFileSize() = 0;

    /// Sets the position, in bytes from the start; the next read starts there. A backend without seeking throws.
    virtual void SeekTo(std::uint64_t offset) = 0;

    /// Reads `count` bytes at the position into `buffer`, advances it and returns the count read. Whether a read that
    /// reaches past the end throws (host files) or returns fewer bytes, 0 at the end (memory), is the backend's to say.
    virtual std::uint64_t ReadExc(void* buffer, std::uint64_t count) = 0;

    /// Ends the reading: releases what it held, reports errors that were put off. Reading on afterwards throws where
    /// the backend closes its file.
    virtual void FinishRead() = 0;
};

}  // namespace tarn
