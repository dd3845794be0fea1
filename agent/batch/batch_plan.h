#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "agent/batch/batch_format.h"
#include "agent/root/rename_at.h"
#include "mirrowen/guid/guid.h"
#include "tarn/batch/batch_area_dev_token.h"

namespace agent::batch {

/// What a batch says of one of its entries before its content comes.
struct planned_entry_t {
    std::uint64_t number = 0;  ///< in the copy's group, from 0
    std::string name;          ///< in the command stream
    std::string path;          ///< below the root; judged when the entry is worked on
    std::uint64_t size = 0;    ///< bytes of a file, or of a link's content; 0 for a directory
};

/// What a batch says of itself. A value.
struct batch_plan_t {
    guid::guid_t copy;
    EReplace replace = EReplace::eNo;
    bool unsynced = false;
    std::uint64_t payload = 0;  ///< bytes of the command stream
    std::vector<planned_entry_t> entries;
};

/// Reads a batch's token. Throws `exc::CRuntimeExc`, each with the numbers that are meant:
/// - "A batch of [%1] entries is refused: it has 1 to [%2]."
/// - "A batch with [%1] bytes of commands is refused: it has 1 to [%2]."
/// - what ParseBatchName throws
/// - "Entry [%1] is of another copy than the batch."
/// - "Entry [%1] is out of order: the numbers of a batch ascend."
/// - "Entry [%1] is refused: a group has at most [%2] entries."
/// - "Entry [%1] with [%2] bytes is refused: in a batch it has at most [%3]."
batch_plan_t PlanBatch(const tarn::batch::CBatchAreaDevToken& token);

}  // namespace agent::batch
