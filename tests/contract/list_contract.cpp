// Listing: directories are listed elsewhere, no backend here does it.
#include "mirrowen/exc/not_impl_exc.h"
#include "tests/contract/backend_contract.h"

namespace contract {

TEST_P(BackendContract, ListingIsNotImplemented) {
    for (const std::string& path : {Path(""), Path("missing")}) {
        const auto caught = tests::Catch([&] { Fs().EnumerateDirectoryContent(path); });
        EXPECT_TRUE(caught.Is<exc::CNotImplExc>());
        EXPECT_EQ(caught.message, "fs_operations_t::EnumerateDirectoryContent");
    }
}

}  // namespace contract
