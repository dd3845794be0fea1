#include "agent/tree/tree_source.h"

namespace agent {

tree_source_t::~tree_source_t() = default;

}  // namespace agent
