#include "agent/copy/item_sink.h"

namespace agent::copy {

item_sink_t::~item_sink_t() = default;

void item_sink_t::Begin() {}

}  // namespace agent::copy
