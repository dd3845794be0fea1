// Existence and removal.
#include "tests/contract/backend_contract.h"

namespace contract {

TEST_P(BackendContract, ADeletedFileIsGoneAndCanBeMadeAgain) {
    Put("file", "content");
    Fs().DeleteFile(Path("file"));
    EXPECT_FALSE(Fs().IsObjectExist(Path("file")));
    tests::Catch([&] { Open("file"); });
    Put("file", "again");
    EXPECT_EQ(Get("file"), "again");
}

TEST_P(BackendContract, DeletingOneFileSparesItsNeighbours) {
    Put("file", "content");
    Put("file2", "other");
    Put("fil", "third");
    Fs().DeleteFile(Path("file"));
    EXPECT_EQ(Get("file2"), "other");
    EXPECT_EQ(Get("fil"), "third");
}

TEST_P(BackendContract, DeletingWhatIsNotThere) {
    const auto remove = [&] { Fs().DeleteFile(Path("missing")); };
    if (const deviation_t* const deviation = Without(EFeature::eDeleteTellsMiss)) {
        SCOPED_TRACE(deviation->reason);
        EXPECT_NO_THROW(remove());
        return;
    }
    EXPECT_NE(tests::Catch(remove).message.find("[" + Path("missing") + "]"), std::string::npos);
}

TEST_P(BackendContract, OnlyAnEmptyDirectoryIsDeleted) {
    if (const deviation_t* const deviation = Without(EFeature::eDirectories)) {
        return ExpectRefusal(*deviation, Path("dir"), [&] { Fs().CreateDir(Path("dir")); });
    }
    Fs().CreateDir(Path("dir"));
    Put("dir/file", "content");
    tests::Catch([&] { Fs().DeleteFile(Path("dir")); });
    EXPECT_EQ(Get("dir/file"), "content");
    Fs().DeleteFile(Path("dir/file"));
    Fs().DeleteFile(Path("dir"));
    EXPECT_FALSE(Fs().IsObjectExist(Path("dir")));
}

}  // namespace contract
