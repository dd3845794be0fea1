#pragma once

#include <span>
#include <vector>

#include "agent/batch/batch_plan.h"
#include "agent/staging/received_batch.h"

namespace agent::batch {

/// Checks the whole command stream of a batch against its plan and returns the entries, whose pieces point into
/// `payload`. The stream has for each entry, in the plan's order: its creation under its name (a directory with the
/// overwrite flag 0, a file or link with 1), of a file the writes of what is no hole (ascending, not overlapping, none
/// empty, within the size), of a link one write of its content, and at last the attributes; only the creation carries a
/// path. Nothing else is taken.
///
/// Any failure is thrown as `exc::CRuntimeExc` "The commands of a batch are refused." with its cause: those of
/// `tarn::blobfs::blob_command_reader_t`, "The command at offset [%1] is refused for entry [%2]: %3.", "The commands
/// end before the attributes of entry [%1].", the error of the attributes or CheckItem's.
std::vector<batch_entry_t> CheckContents(const batch_plan_t& plan, std::span<const char> payload);

}  // namespace agent::batch
