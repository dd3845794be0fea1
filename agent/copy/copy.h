#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "agent/batch/batch_format.h"
#include "agent/net/remote_options.h"
#include "mirrowen/io/block/block_math.h"
#include "mirrowen/io/block/buf_transform.h"

/// Copies files and trees between places: to a receiving agent, from place to place on one machine, and between any two
/// paths that the library can read and write.
namespace agent::copy {

/// What the end of a copy means for a machine that loses its power right afterwards.
enum class EDurability {
    /// Every item is on the storage and in its place when it counts as copied; the next one waits for it, or, among
    /// small ones that travel in a batch, the next batch.
    eEach,
    eTree,  ///< likewise, but items wait together: each group of them is written, synced and put in place at once
    eNone,  ///< nobody waits for the storage; an item is in its place as soon as it is written
};

struct copy_options_t {
    bool recursive = false;  ///< descend into directories; without it a directory as source is an error
    bool overwrite = false;  ///< replace what is there; without it an existing target that is no directory is an error
    bool numericOwner = false;  ///< owners go by number only, not by name first
    EDurability durability = EDurability::eTree;
    bool strict = false;    ///< what is else a warning makes its item count as failed
    bool force = false;     ///< with `overwrite`: what is unchanged is copied, too
    bool checksum = false;  ///< with `overwrite`: a file is unchanged when its content is, whatever its time says
    bool verify = false;    ///< every file is read back where it was put and compared by digest
    bool dryRun = false;    ///< only tell the observer what would be done
    /// How long the place keeps what came of a large file whose copy broke off; 0: not at all. A receiving agent goes
    /// by its own setting.
    std::chrono::seconds keepPartial = std::chrono::hours(7 * 24);
    io::block::EBufTransformType compression = io::block::EBufTransformType::eLz4;
    std::uint64_t blockSize = io::block::kDefaultBlockSize;  ///< bytes
    /// To a receiving agent, files of at most this many bytes travel in batches, at most batch::kMaxBatchFile; 0: every
    /// item travels by itself.
    std::uint64_t batchLimit = batch::kDefaultBatchFile;
    net::remote_options_t remote;
};

/// Something that happened to one path.
struct copy_note_t {
    std::string path;  ///< of the source, or of the target where only that is known
    std::string text;
};

struct copy_report_t {
    std::uint64_t files = 0;
    std::uint64_t directories = 0;
    std::uint64_t links = 0;
    std::uint64_t hardLinks = 0;        ///< further names of files that had been copied
    std::uint64_t unchanged = 0;        ///< items that were there already and were left alone
    std::uint64_t bytes = 0;            ///< of file contents that travelled
    std::uint64_t resumedBytes = 0;     ///< of file contents that had arrived with an earlier copy
    std::vector<copy_note_t> skipped;   ///< FIFOs, sockets, devices
    std::vector<copy_note_t> warnings;  ///< attributes that could not be read or applied
    std::vector<copy_note_t> failed;    ///< items that did not arrive; the rest went on
};

/// Is told how the copy goes, from the thread that called Copy. Every function has an empty default.
class copy_observer_t {
  public:
    virtual ~copy_observer_t();
    /// The tree has been looked through: what there is to copy.
    virtual void OnPlanned(std::uint64_t items, std::uint64_t bytes);
    /// `bytes` more of file contents have been read.
    virtual void OnBytes(std::uint64_t bytes);
    /// `bytes` of file contents need not be read, since the far end has them.
    virtual void OnBytesSpared(std::uint64_t bytes);
    /// The item at `path` has been copied, or needed no copying.
    virtual void OnItemDone(const std::string& path);
    /// Of a dry run: what would be done with the item at `path`: "copy", "replace", "update" (the attributes of a
    /// directory that is there), "link" (another name of a file that goes before), "skip unchanged", "skip FIFO" ...
    virtual void OnDecision(const std::string& action, const std::string& path);
};

/// Copies every source to the destination.
///
/// - A source is a path of any readable form, "tarn://HOST:PORT/PATH", or "-" for standard input. A link is copied as a
///   link; one of this machine with a trailing '/' is followed. The destination is a path of any writable form or
///   "tarn://HOST:PORT/PATH".
/// - When the destination is an existing directory each source goes below it under its own name; otherwise there must
///   be one source, which becomes the destination. Existing directories are merged. A source without a name of its own
///   (".", "dir/..", "/") is merged into the existing destination, which keeps its attributes.
/// - Without `overwrite` every target is asked for first, in bulk; one that exists and is no directory is an error that
/// names
///   it, and nothing is changed.
/// - With `overwrite` an item is left alone when what is there is of the same kind, size, modification time, mode,
/// owner
///   and link target. Directories count when nothing was put into them.
/// - Files that share an inode in the source share one at the destination.
/// - An item that fails is noted and the rest goes on. Warnings do not stop anything.
///
/// Throws for what makes the copy as a whole impossible: wrong arguments, a source that is missing, an existing target,
/// a destination that cannot be reached, `options.remote.stop`.
copy_report_t Copy(const std::vector<std::string>& sources, const std::string& destination,
                   const copy_options_t& options, copy_observer_t& observer);

}  // namespace agent::copy
