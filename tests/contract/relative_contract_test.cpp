// The suite over relative paths of host files and of files in memory, as the dispatcher serves them.
#include "tests/contract/backend_contract.h"
#include "tests/contract/relative_place.h"

namespace contract {

using host_t = dispatched_t<relative_place_t<host_place_t>>;
using memory_t = dispatched_t<relative_place_t<memory_place_t>>;

INSTANTIATE_TEST_SUITE_P(RelativeHost, BackendContract, testing::Values(SubjectOf<host_t>()));
INSTANTIATE_TEST_SUITE_P(RelativeMemory, BackendContract, testing::Values(SubjectOf<memory_t>()));

}  // namespace contract
