#include "mirrowen/progress/progress_base.h"

namespace progress {

progress_base_t::~progress_base_t() = default;

}  // namespace progress
