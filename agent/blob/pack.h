#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "agent/copy/copy.h"

namespace agent::blob {

struct pack_options_t {
    std::string folder;      ///< where the blob files are put; made when it is not there, its parent is not
    std::string target;      ///< the directory, at the host that applies them, below which everything goes
    bool overwrite = false;  ///< files that are there when the blob files are applied are made anew
};

struct pack_report_t {
    std::vector<std::string> blobFiles;  ///< their paths, in the order in which they are to be applied
    std::uint64_t files = 0;
    std::uint64_t directories = 0;
    std::uint64_t bytes = 0;                  ///< of file contents, holes left out
    std::vector<copy::copy_note_t> skipped;   ///< FIFOs, sockets, devices
    std::vector<copy::copy_note_t> warnings;  ///< attributes that could not be read, files that changed meanwhile
    std::vector<copy::copy_note_t> failed;    ///< what could not be read, and links, which no blob file can hold
};

/// Packs trees of this machine, or of a restore view, into blob files (docs/formats.md, "Blob file"): directories
/// before what is in them and their attributes after it, files with their contents, holes left out, and their
/// attributes. Each source goes below the target under its own name; one without a name of its own (".", "dir/..")
/// stands alone, and what is in it goes straight below the target. Links are not followed, except one at the end of a
/// source with a trailing slash. Each name of a file with several becomes a file of its own.
///
/// What cannot be read is noted and the rest goes on. Of a file that fails after more than 4 MiB the blob files hold
/// the part until there, without attributes; of a smaller one they hold nothing. Throws for what makes the whole
/// impossible, and leaves no blob file behind then: a source that is missing, two that would become one, a target that
/// is empty or longer than a path, a folder that holds blob files already or lies in a source, blob files that cannot
/// be written.
pack_report_t Pack(const std::vector<std::string>& sources, const pack_options_t& options);

}  // namespace agent::blob
