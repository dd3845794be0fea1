#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "agent/copy/copy.h"
#include "agent/copy/loaded_item.h"
#include "agent/tree/tree_source.h"
#include "mirrowen/io/block/block_math.h"

namespace agent::copy {

struct load_options_t {
    std::uint64_t blockSize = io::block::kDefaultBlockSize;  ///< the most bytes of a block
    std::uint64_t startOffset = 0;                           ///< of a file: its content is delivered from here on
};

/// A tree whose objects can be copied. One thread, but the content of a loaded item may be read on another one, and
/// only until the next call of Load.
class item_source_t : public tree_source_t {
  public:
    ~item_source_t() override;

    /// Opens a file, directory or link and reads its attributes as they are now; `target` becomes the path of the item
    /// and the start offset is the item's, too. What could not be read of the attributes is added to `warnings`. Throws
    /// what fails, naming the object: one that is not of the entry's kind any more, too. The content itself throws from
    /// its `ReadNext`, a file that changed its size while it was read included.
    virtual loaded_item_t Load(const tree_entry_t& entry, const std::string& target, const load_options_t& options,
                               std::vector<copy_note_t>& warnings) = 0;

    /// Whether reading a part of a file twice costs little, so that a broken-off copy is worth going on with.
    virtual bool ReadsTwice() const { return true; }
};

}  // namespace agent::copy
