#pragma once

#include <cstdint>
#include <memory>

#include "agent/staging/item_dev.h"
#include "agent/staging/partial_file.h"
#include "agent/staging/sparse_writer.h"
#include "agent/staging/staged_entry.h"
#include "mirrowen/posix/posix_file.h"

namespace agent {

/// Receives a file: written in the staging folder, renamed into place in `Finish` or left to its group. What came of a
/// resumable one stays in the store of partial files when the device goes unfinished, unless writing it failed.
class file_dev_t final : public item_dev_t {
  public:
    /// `size`: bytes of the whole file, 0 when unknown. Throws what CheckTarget throws, and errors of creating and
    /// sizing the staged file; `exc::CRuntimeExc` "Item [%1] starts at [%2], but [%3] bytes are kept." when the item
    /// goes on with a file of which less came.
    file_dev_t(std::shared_ptr<staging_t> staging, item_t item, std::uint64_t size, EReplace replace,
               group_slot_t slot = {});
    ~file_dev_t() override;

    using item_dev_t::Write;
    /// `sparse_writer_t::Write` with its errors. After a failure what was written takes no room any more.
    void Write(std::shared_ptr<io::area::IArea> area) override;

    /// Length, attributes, fsync, rename, fsync of the directory, in this order; a deferred item is left to its group
    /// after the attributes. Throws `exc::CRuntimeExc` "Item [%1] ended after [%2] bytes, but [%3] were declared." when
    /// the size was known and is another; errors of ApplyMeta, of fsync, of `staged_entry_t::Commit`, of these
    /// `exc::CAlreadyExistsExc` unwrapped, and of `copy_group_t::Put`.
    void Finish(std::shared_ptr<synch::completion_port_t> port) override;

  private:
    void OpenPartial();
    void CreateStaged();
    void Stage();
    void CheckSize() const;
    /// Gives the room back that the written bytes take.
    void Discard() noexcept;

    const std::uint64_t size_;
    std::unique_ptr<partial_file_t> partial_;
    std::unique_ptr<staged_entry_t> entry_;
    std::shared_ptr<posix::posix_file_t> file_;
    std::unique_ptr<sparse_writer_t> writer_;
};

}  // namespace agent
