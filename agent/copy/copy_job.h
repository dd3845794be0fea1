#pragma once

#include <string>

#include "agent/copy/copy_source.h"

namespace agent::copy {

/// A source and where it goes below the sink.
struct copy_job_t {
    copy_source_t source;
    std::string target;
    bool merges = false;  ///< the contents of a nameless source go into the destination, whose attributes stay

    bool IsTree() const { return source.form == copy_source_t::EForm::eTree; }
    /// Where an entry of the tree goes.
    std::string TargetOf(const std::string& entry) const;
};

}  // namespace agent::copy
