#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "mirrowen/io/area/area.h"
#include "mirrowen/posix/posix_file.h"

namespace agent {

/// Writes a file from front to back and leaves holes where runs of zeroes come: nothing is ever written for them, and
/// what is not written takes no room. Zero bytes that come as data are written as they are. One thread at a time.
class sparse_writer_t {
  public:
    /// Shares `file`, which must have nothing but a hole behind `startOffset`; its size does not matter.
    explicit sparse_writer_t(std::shared_ptr<posix::posix_file_t> file, std::uint64_t startOffset = 0);

    /// Writes the area's blocks, each of which must begin where the one before it ended, the first at `startOffset`;
    /// the area lets go of each as soon as it is written. A sparse area without blocks is a run of zeroes. Any failure
    /// is an `exc::CRuntimeExc` "Cannot append file block to the end of file. File: [%1]. Write position: [%2]." with
    /// its cause: "Block offset in source file differs from the current write position in target file. Block offset:
    /// [%1]. Write offset: [%2].", those of `tarn::blocks::CheckNotPacked` and `ContentOf`, or the file's. What was
    /// written before it stays, and writing can only be given up.
    void Write(io::area::IArea& area);

    /// Sets the file's length to the position, so that it ends with a hole where zeroes came last, and has `Flush`
    /// reach the storage whatever was written. Throws the file's "Failed to set size of file [%1]".
    void Finish();

    /// Where the next block must begin.
    std::uint64_t GetPosition() const noexcept { return position_; }

  private:
    template <class Action>
    void Append(std::uint64_t offset, const Action& action);
    void Skip(std::uint64_t count);
    void Store(const io::block::CFibBlock& block);

    const std::shared_ptr<posix::posix_file_t> file_;
    std::uint64_t position_;
    bool behind_ = true;  ///< the file's own position is not `position_`
};

}  // namespace agent
