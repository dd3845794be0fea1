// The suite over what the dispatcher chooses for host and memory paths.
#include "tests/contract/backend_contract.h"
#include "tests/contract/places.h"

namespace contract {

using host_t = dispatched_t<host_place_t>;
using memory_t = dispatched_t<memory_place_t>;

INSTANTIATE_TEST_SUITE_P(DispatchedHost, BackendContract, testing::Values(SubjectOf<host_t>()));
INSTANTIATE_TEST_SUITE_P(DispatchedMemory, BackendContract, testing::Values(SubjectOf<memory_t>()));

}  // namespace contract
