#include "agent/copy/item_source.h"

namespace agent::copy {

item_source_t::~item_source_t() = default;

}  // namespace agent::copy
