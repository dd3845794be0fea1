// Opening and creating.
#include "mirrowen/exc/already_exists_exc.h"
#include "mirrowen/exc/runtime_exc.h"
#include "tests/contract/backend_contract.h"

namespace contract {

TEST_P(BackendContract, OpeningAMissingFileThrowsAndNamesThePath) {
    const auto caught = tests::Catch([&] { Open("missing"); });
    EXPECT_TRUE(caught.Is<exc::CRuntimeExc>());
    EXPECT_EQ(caught.message, util::str_format(Traits().openFailure, Path("missing")));
    EXPECT_FALSE(caught.causes.empty()) << "the reason is missing";
}

TEST_P(BackendContract, OpeningForExclusiveUseReadsTheSameBytes) {
    Put("file", "content");
    const auto open = [&] { return Fs().OpenFile4ReadWithoutWriteShare(Path("file")); };
    if (const deviation_t* const deviation = Without(EFeature::eExclusiveRead)) {
        return ExpectRefusal(*deviation, Path("file"), open);
    }
    const auto stream = open();
    EXPECT_EQ(stream->GetPath(), Backend().StreamPath("file"));
    EXPECT_EQ(ReadText(*stream, 7), "content");
    stream->FinishRead();
}

TEST_P(BackendContract, DisksAreRefused) {
    const auto caught = tests::Catch([&] { Fs().OpenDisk4Read(Path("disk")); });
    EXPECT_TRUE(caught.Is<exc::CRuntimeExc>());
    EXPECT_EQ(caught.message, util::str_format(Traits().diskRefusal, Path("disk")));
}

TEST_P(BackendContract, ANewFileIsThereAtOnce) {
    EXPECT_FALSE(Fs().IsObjectExist(Path("file")));
    const auto stream = Create("file", 1000);
    EXPECT_TRUE(Fs().IsObjectExist(Path("file")));
    EXPECT_EQ(Open("file")->GetFileSize(), Without(EFeature::ePresize) != nullptr ? 0U : 1000U);
}

TEST_P(BackendContract, ANewFileOfSomeLengthReadsAsZeroes) {
    Create("file", 100)->Close(nullptr);
    EXPECT_EQ(Get("file"), std::string(Without(EFeature::ePresize) != nullptr ? 0 : 100, '\0'));
}

TEST_P(BackendContract, CreatingWithoutOverwriteSparesWhatIsThere) {
    Put("file", "old");
    if (const deviation_t* const deviation = Without(EFeature::eKeepsExisting)) {
        SCOPED_TRACE(deviation->reason);
        Create("file")->Close(nullptr);
        EXPECT_EQ(Get("file"), "");
        return;
    }
    const auto caught = tests::Catch([&] { Create("file"); });
    EXPECT_TRUE(caught.Is<exc::CAlreadyExistsExc>()) << "callers tell this error apart: nothing may wrap it";
    EXPECT_EQ(Get("file"), "old");
}

TEST_P(BackendContract, CreatingWithOverwriteStartsAnew) {
    Put("file", "old and long");
    const auto stream = Fs().CreateNewFile(Path("file"), 3, true);
    WriteText(*stream, "new");
    stream->Close(nullptr);
    EXPECT_EQ(Get("file"), "new");
}

TEST_P(BackendContract, OpeningForUpdateSetsTheLengthAndKeepsTheBytesBelowIt) {
    Put("file", "0123456789");
    const auto open = [&](std::uint64_t length) { return Fs().OpenFile4Write(Path("file"), length); };
    if (const deviation_t* const deviation = Without(EFeature::eUpdate)) {
        ExpectRefusal(*deviation, Path("file"), [&] { open(4); });
        EXPECT_EQ(Get("file"), "0123456789");
        return;
    }
    open(4)->Close(nullptr);
    EXPECT_EQ(Get("file"), "0123");
    open(6)->Close(nullptr);
    EXPECT_EQ(Get("file"), std::string("0123\0\0", 6));
    const auto stream = open(6);
    WriteText(*stream, "AB");
    stream->Close(nullptr);
    EXPECT_EQ(Get("file"), std::string("AB23\0\0", 6));
}

TEST_P(BackendContract, OpeningAMissingFileForUpdateThrowsAndMakesNothing) {
    EXPECT_TRUE(tests::Catch([&] { Fs().OpenFile4Write(Path("missing"), 4); }).Is<exc::CRuntimeExc>());
    EXPECT_FALSE(Fs().IsObjectExist(Path("missing")));
}

TEST_P(BackendContract, DirectoriesHoldFiles) {
    if (const deviation_t* const deviation = Without(EFeature::eDirectories)) {
        return ExpectRefusal(*deviation, Path("dir"), [&] { Fs().CreateDir(Path("dir")); });
    }
    Fs().CreateDir(Path("dir"));
    EXPECT_TRUE(Fs().IsObjectExist(Path("dir")));
    Fs().CreateDir(Path("dir"));  // there already: fine
    Fs().CreateDir(Path("dir/inner") + "/");
    Put("dir/inner/file", "content");
    EXPECT_EQ(Get("dir/inner/file"), "content");
}

TEST_P(BackendContract, NothingIsMadeBelowAMissingDirectory) {
    if (Without(EFeature::eDirectories) != nullptr) {
        Put("dir/file", "content");  // a flat name with a slash in it
        EXPECT_EQ(Get("dir/file"), "content");
        EXPECT_FALSE(Fs().IsObjectExist(Path("dir")));
        return;
    }
    EXPECT_TRUE(tests::Catch([&] { Create("dir/file"); }).Is<exc::CRuntimeExc>());
    tests::Catch([&] { Fs().CreateDir(Path("dir/inner")); });
    EXPECT_FALSE(Fs().IsObjectExist(Path("dir")));
}

}  // namespace contract
