#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "mirrowen/cnt/array.h"
#include "tarn/export.h"
#include "tarn/file_rstream.h"

namespace tarn {

/// Reads a buffer in memory, which it shares with whoever else holds it. One thread at a time; not synchronised with a
/// writer of the buffer.
class TARN_API mem_rstream_t : public file_rstream_t {
  public:
    /// `path` is what GetPath returns; `buffer` must be there.
    mem_rstream_t(const std::string& path, std::shared_ptr<cnt::array_t<char>> buffer);
    ~mem_rstream_t() override;

    std::string GetPath() override;
    /// The buffer's size now: it follows a writer.
    std::uint64_t GetFileSize() override;
    /// Refuses: `exc::CRuntimeExc` "mem_rstream_t::SeekTo is not implemented.".
    void SeekTo(std::uint64_t offset) override;
    /// Reads up to `count` bytes; fewer only at the end of the data, 0 once it is reached. Throws nothing.
    std::uint64_t ReadExc(void* buffer, std::uint64_t count) override;
    /// Does nothing; reading may go on.
    void FinishRead() override;

  private:
    std::string path_;
    std::shared_ptr<cnt::array_t<char>> buffer_;
    std::uint64_t position_ = 0;
};

}  // namespace tarn
