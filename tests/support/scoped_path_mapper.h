#pragma once

#include <utility>

#include "corvel/corvel_ctx.h"

namespace tests {

/// Puts a mapper of relative paths in force for the life of this object; afterwards there is none, and plain paths are
/// allowed again.
class scoped_path_mapper_t {
  public:
    explicit scoped_path_mapper_t(CCorvelCtx::relative_path_mapper_t mapper) {
        CCorvelCtx::Inst()->SetRelativePathMapper(std::move(mapper));
    }
    ~scoped_path_mapper_t() {
        CCorvelCtx::Inst()->SetRelativePathMapper({});
        CCorvelCtx::Inst()->SetNonPrefixPathesDisabled(false);
    }
    scoped_path_mapper_t(const scoped_path_mapper_t&) = delete;
    scoped_path_mapper_t& operator=(const scoped_path_mapper_t&) = delete;
};

}  // namespace tests
