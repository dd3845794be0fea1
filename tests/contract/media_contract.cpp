// Backup media.
#include "tests/contract/backend_contract.h"

namespace contract {

TEST_P(BackendContract, BackupMediaKeepExtents) {
    if (const deviation_t* const deviation = Without(EFeature::eBackupMedia)) {
        return ExpectRefusal(*deviation, "", [&] { Fs().GetBackupMedia(); });
    }
    const std::string path = Backend().StreamPath("extent");  // media know their own paths only
    const auto extents = Fs().GetBackupMedia()->GetExtentOperations();
    const auto stream = extents->ExtCreate(path, 100);
    WriteText(*stream, "content");
    stream->Close(nullptr);
    EXPECT_EQ(extents->ExtSize(path), 100U);
    extents->ResizeExtent(path, 200);
    EXPECT_EQ(Get("extent"), std::string(200, '\0'));
    EXPECT_EQ(Fs().GetBackupMedia()->GetStgOperations()->StgOpen4Read(path)->GetSize(), 200U);
}

}  // namespace contract
