#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "mirrowen/io/area/area_read_dev.h"
#include "mirrowen/io/area/knows_holes.h"
#include "mirrowen/posix/posix_file.h"

namespace agent::copy {

/// Reads a file that is open already, so nobody can put another one in its place between examining and reading it: its
/// data as blocks, its holes as sparse areas, as the file system's own map tells them (lseek(2), SEEK_DATA and
/// SEEK_HOLE). Where there is no such map everything is data and `KnowsHoles` says no. One thread at a time.
class file_source_t final : public io::area::area_read_dev_t, public io::area::IKnowsHoles {
  public:
    /// `examined`: what fstat said of the file before anything of it was read or told. `blockSize` in bytes, above 0.
    /// Reading begins at `startOffset`; areas carry their offsets in the whole file. Throws
    /// `posix::errno_exc_t` "Failed to find the holes of file [%1]".
    file_source_t(std::shared_ptr<posix::posix_file_t> file, const struct stat& examined, std::uint64_t blockSize,
                  std::uint64_t startOffset = 0);
    ~file_source_t() override;

    /// The next area: a hole as a whole, or one block of data that crosses neither the border of a hole nor a multiple
    /// of the block size. Holes that come or go meanwhile are read as what they were found to be; the bytes are right
    /// either way. Throws `posix::errno_exc_t` "Failed to find the holes of file [%1]", "Failed to read from file
    /// [%1]", and for a file whose size is no longer the examined one (what was read would be neither the old file nor
    /// the new one) `exc::CRuntimeExc` "File [%1] changed while it was read: it had [%2] bytes and now has [%3].".
    std::shared_ptr<io::area::IArea> ReadNext() override;
    std::string GetDisplayName() override;
    /// Does nothing: a hole is one area whatever its length.
    void SetEmptyBlocksMaximum(std::uint64_t maximum) override;
    bool KnowsHoles() const noexcept override { return mapped_; }

    /// Whether somebody wrote to the file, or changed its attributes, between `examined` and the end of the reading,
    /// and left it as long as it was. Known when ReadNext has returned nothing. A write within the same tick of the
    /// file system's clock as the one before `examined` goes unseen.
    bool HasChanged() const noexcept { return changed_; }

  private:
    std::uint64_t FindExtent();
    std::shared_ptr<io::area::IArea> TakeHole(std::uint64_t end);
    std::shared_ptr<io::area::IArea> ReadBlock();
    std::uint64_t BlockEnd() const noexcept;
    void ReadAt(void* buffer, std::size_t count) const;
    void Finish();
    [[noreturn]] void ThrowChanged(std::uint64_t now) const;

    const std::shared_ptr<posix::posix_file_t> file_;
    const struct stat examined_;
    const std::uint64_t end_;
    const std::uint64_t blockSize_;
    bool mapped_ = true;
    bool finished_ = false;
    bool changed_ = false;
    std::uint64_t position_;
    std::uint64_t extentEnd_;  ///< up to here all is data
    std::uint64_t index_ = 0;
    std::uint64_t readSize_ = 0;
};

}  // namespace agent::copy
