// Reading.
#include "tests/contract/backend_contract.h"

namespace contract {

TEST_P(BackendContract, ReadingGoesOnWhereTheLastReadEnded) {
    Put("file", "0123456789");
    const auto stream = Open("file");
    EXPECT_EQ(ReadText(*stream, 4), "0123");
    EXPECT_EQ(ReadText(*stream, 0), "");
    EXPECT_EQ(ReadText(*stream, 5), "45678");
    EXPECT_EQ(ReadText(*stream, 1), "9");
    EXPECT_EQ(stream->GetFileSize(), 10U);
}

TEST_P(BackendContract, AReadStreamTellsItsPathAndSize) {
    Put("file", "0123456789");
    const auto stream = Open("file");
    EXPECT_EQ(stream->GetPath(), Backend().StreamPath("file"));
    EXPECT_EQ(stream->GetFileSize(), 10U);
}

TEST_P(BackendContract, AnEmptyFileHasNoBytes) {
    Put("file", "");
    EXPECT_EQ(Open("file")->GetFileSize(), 0U);
    EXPECT_EQ(Get("file"), "");
}

TEST_P(BackendContract, AReadPastTheEndIsShortOrThrows) {
    Put("file", "0123456789");
    const auto stream = Open("file");
    EXPECT_EQ(ReadText(*stream, 7), "0123456");
    if (const deviation_t* const deviation = Without(EFeature::eShortReadThrows)) {
        SCOPED_TRACE(deviation->reason);
        EXPECT_EQ(ReadText(*stream, 8), "789");
        EXPECT_EQ(ReadText(*stream, 8), "");
        return;
    }
    const auto caught = tests::Catch([&] { ReadText(*stream, 8); });
    EXPECT_EQ(caught.message, util::str_format("Read operation has failed. File: [%1]. Size of data: [%2].",
                                               Backend().StreamPath("file"), 8));
}

TEST_P(BackendContract, SeekingMovesTheReader) {
    Put("file", "0123456789");
    const auto stream = Open("file");
    if (const deviation_t* const deviation = Without(EFeature::eReadSeek)) {
        ExpectRefusal(*deviation, Path("file"), [&] { stream->SeekTo(8); });
        EXPECT_EQ(ReadText(*stream, 2), "01") << "a refused seek moves nothing";
        return;
    }
    stream->SeekTo(8);
    EXPECT_EQ(ReadText(*stream, 2), "89");
    stream->SeekTo(0);
    EXPECT_EQ(ReadText(*stream, 3), "012");
}

TEST_P(BackendContract, FinishingTwiceIsHarmless) {
    Put("file", "0123456789");
    const auto stream = Open("file");
    stream->FinishRead();
    stream->FinishRead();
    EXPECT_EQ(stream->GetPath(), Backend().StreamPath("file"));
    if (const deviation_t* const deviation = Without(EFeature::eCloses)) {
        SCOPED_TRACE(deviation->reason);
        EXPECT_EQ(ReadText(*stream, 2), "01");
        return;
    }
    tests::Catch([&] { ReadText(*stream, 2); });
    tests::Catch([&] { stream->GetFileSize(); });
    tests::Catch([&] { stream->SeekTo(0); });
}

TEST_P(BackendContract, TwoReadersDoNotDisturbEachOther) {
    Put("file", "0123456789");
    const auto first = Open("file");
    const auto second = Open("file");
    EXPECT_EQ(ReadText(*first, 6), "012345");
    EXPECT_EQ(ReadText(*second, 3), "012");
    EXPECT_EQ(ReadText(*first, 2), "67");
}

TEST_P(BackendContract, AReaderKeepsTheBytesOfAFileThatIsDeleted) {
    Put("file", "0123456789");
    const auto stream = Open("file");
    Fs().DeleteFile(Path("file"));
    EXPECT_FALSE(Fs().IsObjectExist(Path("file")));
    EXPECT_EQ(ReadText(*stream, 10), "0123456789");
}

TEST_P(BackendContract, AReaderKeepsTheBytesOfAFileThatIsReplaced) {
    Put("file", "0123456789");
    const auto stream = Open("file");
    const auto writer = Fs().CreateNewFile(Path("file"), 3, true);
    WriteText(*writer, "new");
    writer->Close(nullptr);
    EXPECT_EQ(ReadText(*stream, 10), "0123456789");
    EXPECT_EQ(Get("file"), "new");
}

}  // namespace contract
