#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <span>
#include <string>

#include "agent/batch/batch.h"
#include "agent/batch/batch_backend.h"
#include "agent/batch/batch_connection.h"
#include "agent/batch/batch_folder.h"
#include "agent/token/item.h"
#include "tarn/blobfs/blob_creater.h"

namespace agent::batch {

/// Some bytes of a file's content that are not all in a hole.
struct extent_t {
    std::uint64_t offset = 0;  ///< from the start of the file
    std::span<const std::byte> data;
};

/// Packs deferred items into blob files; docs/formats.md ("Batch"). The blob files lie in a private temporary folder
/// until they are finished. One thread.
class batch_packer_t {
  public:
    /// Throws what batch_folder_t throws.
    batch_packer_t();
    /// What was not finished is gone.
    ~batch_packer_t();
    batch_packer_t(const batch_packer_t&) = delete;
    batch_packer_t& operator=(const batch_packer_t&) = delete;

    /// Whether an item of this kind can be packed: a file, directory or link with attributes, from its first byte on.
    static bool Takes(const item_t& item) noexcept;

    /// Adds an item; its path is that below the receiver's root. `content`, of a file, has `size` bytes in all: the
    /// extents in the order of their offsets, and zeroes where there are none. Throws what CheckItem and the
    /// serialisation of the attributes throw, with the batch as it was before.
    void Add(const item_t& item, std::span<const extent_t> content, std::uint64_t size);

    bool IsEmpty() const noexcept { return items_.empty(); }
    /// As many entries or bytes as a batch should have.
    bool IsFull() const noexcept;

    /// The batch with all that was added; the next one begins. It need not be empty. Throws `posix::errno_exc_t` when
    /// the blob file cannot be written or read; what was added is lost then.
    batch_t Finish();

  private:
    void Pack(const item_t& item, const std::string& name, std::span<const extent_t> content);

    const batch_folder_t folder_;
    const std::shared_ptr<batch_connection_t> connection_;
    const std::shared_ptr<tarn::blobfs::BlobCreater> creater_;
    batch_backend_t backend_;
    std::list<tarn::batch::SFileItemSpec> items_;
    std::uint64_t bytes_ = 0;  ///< of the command stream until now, nearly
    bool unsynced_ = false;
    std::string fault_;  ///< what kept an item from being packed whole
};

}  // namespace agent::batch
