// The suite over files in memory.
#include "tarn/memfs/memfs_operations.h"
#include "tests/contract/backend_contract.h"
#include "tests/contract/places.h"

namespace contract {

using memory_t = direct_t<memory_place_t, tarn::memfs::memfs_operations_t>;

INSTANTIATE_TEST_SUITE_P(Memory, BackendContract, testing::Values(SubjectOf<memory_t>()));

}  // namespace contract
