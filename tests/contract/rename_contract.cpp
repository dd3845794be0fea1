// Renaming.
#include "tests/contract/backend_contract.h"

namespace contract {

TEST_P(BackendContract, AFileTakesItsContentToTheNewName) {
    Put("old", "content");
    const auto rename = [&] { Fs().RenameFile(Path("old"), Path("new")); };
    EXPECT_EQ(Fs().IsRenameSupported(), Without(EFeature::eRename) == nullptr);
    if (const deviation_t* const deviation = Without(EFeature::eRename)) {
        ExpectRefusal(*deviation, Path("old"), Path("new"), rename);
        EXPECT_EQ(Get("old"), "content");
        EXPECT_FALSE(Fs().IsObjectExist(Path("new")));
        return;
    }
    rename();
    EXPECT_FALSE(Fs().IsObjectExist(Path("old")));
    EXPECT_EQ(Get("new"), "content");
}

TEST_P(BackendContract, RenamingReplacesTheFileAtTheNewName) {
    Put("old", "content");
    Put("new", "other");
    const auto rename = [&] { Fs().RenameFile(Path("old"), Path("new")); };
    if (const deviation_t* const deviation = Without(EFeature::eRename)) {
        ExpectRefusal(*deviation, Path("old"), Path("new"), rename);
        EXPECT_EQ(Get("new"), "other");
        return;
    }
    rename();
    EXPECT_EQ(Get("new"), "content");
}

TEST_P(BackendContract, RenamingAMissingFileThrows) {
    Put("new", "other");
    tests::Catch([&] { Fs().RenameFile(Path("old"), Path("new")); });
    EXPECT_EQ(Get("new"), "other");
}

}  // namespace contract
