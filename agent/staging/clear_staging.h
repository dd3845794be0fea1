#pragma once

#include <chrono>

#include "agent/root/confined_root.h"

namespace agent {

/// Clears the staging folder `folder` of what its journal names and writes the journal anew with what is still there:
/// files that may be resumed stay when they were written to within `keepPartial`. Nothing else is touched: what
/// somebody put there who wrote no journal is not ours. The caller holds the folder's lock alone. What cannot be
/// removed is told as a warning in the log and stays in the journal. Throws errors of the journal.
void ClearStaging(const confined_root_t& folder, std::chrono::seconds keepPartial);

/// One warning in the log for each name in the folder that is none of ours; the caller has just cleared it.
void WarnOfForeignNames(const confined_root_t& folder);

}  // namespace agent
