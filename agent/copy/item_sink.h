#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "agent/batch/batch.h"
#include "agent/copy/copy.h"
#include "agent/query/content_digest.h"
#include "agent/staging/partial.h"
#include "agent/token/item.h"
#include "agent/tree/object_brief.h"
#include "mirrowen/guid/guid.h"
#include "mirrowen/io/area/area_read_dev.h"
#include "mirrowen/progress/progress_base.h"

namespace agent::copy {

/// Where the items of a copy go: a receiving agent, a directory of this machine, or a single path of the library. Items
/// carry their path relative to the sink. One thread drives a sink; where batches are taken, the commits and batches of
/// a copy may run on another one, while the first asks questions but puts nothing.
class item_sink_t {
  public:
    virtual ~item_sink_t();

    /// Whether `path` is a directory there; an empty path is the destination's own.
    virtual bool IsDirectory(const std::string& path) = 0;

    /// The first of `questions` at whose path something is that stands in an item's way without overwriting: anything
    /// at all for a file or link, anything but a directory for a directory.
    struct question_t {
        std::string path;
        bool forDirectory = false;
    };
    virtual std::optional<std::string> FindInTheWay(const std::vector<question_t>& questions) = 0;

    /// What lies at each of `paths`, in their order; nothing for what is not there or cannot be reached, and everywhere
    /// where the place has no attributes to tell. Throws what kept one of them from being examined.
    virtual std::vector<std::optional<object_brief_t>> Examine(const std::vector<std::string>& paths) = 0;

    /// Whether any owner can be set there, so that an owner that differs is worth copying for.
    virtual bool KeepsOwners() = 0;

    /// The digest of the file at `path`, as the storage gives it back; nothing when no file is there.
    virtual std::optional<query::content_digest_t> Digest(const std::string& path) = 0;

    /// What is kept there of a file whose copy broke off; the file had this path, size and modification time.
    virtual std::optional<partial_t> FindPartial(const std::string& path, std::uint64_t size,
                                                 const util::SFileTime& time) = 0;

    /// Whether items can be deferred there until Commit puts them all in their places.
    virtual bool TakesGroups() const = 0;

    /// An entry of a group that did not get its place.
    struct lost_entry_t {
        std::uint64_t number = 0;
        std::string text;
    };
    /// What became of the entries of a group; those that are not named are in their places.
    struct committed_t {
        std::vector<lost_entry_t> lost;
        std::vector<copy_note_t> warnings;  ///< what could not be applied although the entry arrived
        std::set<std::uint64_t> warned;     ///< the numbers of the entries that `warnings` is about
    };
    /// Commits the deferred items of `copy`, of which there are `entries`. Those that are not lost are in their places,
    /// durably, when it returns. Throws when none of them is; the group is gone then. Never called where TakesGroups
    /// says no.
    virtual committed_t Commit(const guid::guid_t& copy, std::uint64_t entries) = 0;

    /// Whether PutBatch works there. No, here.
    virtual bool TakesBatches() const { return false; }
    /// `path` as the items of a batch have it: below the root of the place.
    virtual std::string PathInBatch(const std::string& path) const;
    /// Puts all the items of a batch, deferred. Throws when they may not all be there; the same batch may be put again,
    /// and so may items with the same numbers. Never called where TakesBatches says no.
    virtual void PutBatch(const batch::batch_t& batch, bool overwrite);

    /// Puts one item there: `source` delivers its content (`size` bytes; 0 for unknown or none). Throws what fails; the
    /// sink can go on with the next item.
    /// What could not be applied although the item arrived is added to `warnings`.
    virtual void Put(const item_t& item, std::shared_ptr<io::area::area_read_dev_t> source, std::uint64_t size,
                     bool overwrite, std::shared_ptr<progress::progress_base_t> progress,
                     std::vector<copy_note_t>& warnings) = 0;

    /// Called often while nothing is put (a large tree is being looked through), so that a peer does not take silence
    /// for death. Never throws: what is lost is noticed by the next call.
    virtual void KeepAlive() noexcept {}

    /// Called once, before the first item and after every question. Throws when nothing can be put there. Does nothing
    /// here.
    virtual void Begin();

    /// Everything has been put. Throws when the place cannot be left in order.
    virtual void End() = 0;

    /// `path` as messages name it.
    virtual std::string Shown(const std::string& path) const = 0;
};

}  // namespace agent::copy
