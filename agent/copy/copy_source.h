#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "agent/copy/copy.h"
#include "agent/copy/item_source.h"
#include "agent/copy/loaded_item.h"
#include "agent/net/remote_options.h"

namespace agent::copy {

/// Where a copy comes from.
struct copy_source_t {
    enum class EForm {
        eTree,   ///< an object of a tree with everything below it
        eInput,  ///< standard input
        ePath,   ///< a single file at another path of the library
    };
    EForm form = EForm::eTree;
    std::string text;                     ///< as the person named it
    std::string baseName;                 ///< its name below a destination directory; empty where it has none
    std::shared_ptr<item_source_t> tree;  ///< of eTree only
    std::string top;                      ///< the object in `tree`; empty for the root itself
};

/// Throws when there is nothing at `text`. A location of another agent is asked for there at once.
copy_source_t OpenCopySource(const std::string& text, const copy_options_t& options);

/// The single file of a source that is no tree. Reading standard input ends when `limits.stop` is asked for.
loaded_item_t LoadSingle(const copy_source_t& source, const std::string& name, std::uint64_t blockSize,
                         const net::remote_options_t& limits);

}  // namespace agent::copy
