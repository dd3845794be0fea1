// The suite over the host's files.
#include "tarn/hostfs/hostfs_operations.h"
#include "tests/contract/backend_contract.h"
#include "tests/contract/places.h"

namespace contract {

using host_t = direct_t<host_place_t, tarn::hostfs::hostfs_operations_t>;

INSTANTIATE_TEST_SUITE_P(Host, BackendContract, testing::Values(SubjectOf<host_t>()));

}  // namespace contract
