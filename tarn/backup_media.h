#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "mirrowen/io/file/random_access_dev.h"
#include "tarn/export.h"
#include "tarn/file_wstream.h"

namespace tarn {

/// The storage on which backup files are kept. Objects are shared; the operations may come from any thread, what they
/// open is used by one.
class TARN_API backup_media_t {
  public:
    class extent_operations_t;
    class stg_operations_t;

    virtual ~backup_media_t();
    /// The operations on extents and on storages; never empty, and usable after this object is gone.
    virtual std::shared_ptr<extent_operations_t> GetExtentOperations() = 0;
    virtual std::shared_ptr<stg_operations_t> GetStgOperations() = 0;
};

/// Operations on extent files. Sizes are bytes. Failures throw and name the file. Any thread.
class TARN_API backup_media_t::extent_operations_t {
  public:
    virtual ~extent_operations_t();
    /// Creates an extent of `size` bytes; one that is there already is replaced.
    virtual std::shared_ptr<file_wstream_t> ExtCreate(const std::string& path, std::uint64_t size) = 0;
    /// The extent's size now; a missing one throws.
    virtual std::uint64_t ExtSize(const std::string& path) = 0;
    /// Opens for reading and writing at random, creating the file when it is missing; `templateParam` is the expected
    /// size, see `io::file::file_template_t`.
    virtual std::shared_ptr<io::file::random_access_dev_t> ExtOpen4RndRwSafe(std::uint64_t templateParam,
                                                                             const std::string& path) = 0;
    /// Opens an existing extent for reading at random.
    virtual std::shared_ptr<io::file::random_access_dev_t> ExtOpen4RndRead(const std::string& path) = 0;
    /// Gives the extent another size. Unless it has that size already its content is discarded: it then reads as
    /// zeroes.
    virtual void ResizeExtent(const std::string& path, std::uint64_t size) = 0;
};

/// Operations on storage files. Failures throw and name the file. Any thread.
class TARN_API backup_media_t::stg_operations_t {
  public:
    virtual ~stg_operations_t();
    /// Opens for reading and writing, creating the file when it is missing; `templateParam` as for extents.
    virtual std::shared_ptr<io::file::random_access_dev_t> StgOpen4Rw(std::uint64_t templateParam,
                                                                      const std::string& path) = 0;
    /// Opens an existing file for reading.
    virtual std::shared_ptr<io::file::random_access_dev_t> StgOpen4Read(const std::string& path) = 0;
};

}  // namespace tarn
