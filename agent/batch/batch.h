#pragma once

#include <cstdint>
#include <list>
#include <memory>

#include "mirrowen/posix/posix_file.h"
#include "tarn/batch/file_item_spec.h"

namespace agent::batch {

/// Many items of one copy on their way: the blob file that holds them, and what its token is to say.
struct batch_t {
    std::shared_ptr<posix::posix_file_t> file;  ///< one frame, from its first byte; it has no name and goes with this
    std::list<tarn::batch::SFileItemSpec> items;
    std::uint64_t total = 0;  ///< bytes of the command stream that the frame unpacks to
    bool unsynced = false;    ///< nobody waits for the storage
};

}  // namespace agent::batch
