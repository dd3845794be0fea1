// Writing.
#include <memory>

#include "mirrowen/synch/completion_port.h"
#include "tests/contract/backend_contract.h"

namespace contract {

TEST_P(BackendContract, WritesFollowOneAnother) {
    const auto stream = Create("file", 10);
    WriteText(*stream, "0123");
    WriteText(*stream, "");
    WriteText(*stream, "456789");
    stream->Close(nullptr);
    EXPECT_EQ(Get("file"), "0123456789");
}

TEST_P(BackendContract, AFileGrowsBeyondTheLengthItWasCreatedWith) {
    const auto stream = Create("file", 2);
    WriteText(*stream, "0123456789");
    stream->Close(nullptr);
    EXPECT_EQ(Get("file"), "0123456789");
}

TEST_P(BackendContract, LargeWritesArriveWhole) {
    std::string content(5U << 20, '\0');
    for (std::size_t i = 0; i != content.size(); ++i) {
        content[i] = static_cast<char>(i % 251);
    }
    Put("file", content);
    EXPECT_TRUE(Get("file") == content);
}

TEST_P(BackendContract, AWriteStreamTellsItsPath) {
    EXPECT_EQ(Create("file")->GetPath(), Backend().StreamPath("file"));
}

TEST_P(BackendContract, SeekingMovesTheWriter) {
    const auto stream = Create("file", 10);
    WriteText(*stream, "0123456789");
    if (const deviation_t* const deviation = Without(EFeature::eWriteSeek)) {
        ExpectRefusal(*deviation, Path("file"), [&] { stream->SeekTo(2); });
        EXPECT_EQ(Get("file"), "0123456789");
        return;
    }
    stream->SeekTo(2);
    WriteText(*stream, "AB");
    stream->SeekTo(12);
    WriteText(*stream, "CD");
    stream->Close(nullptr);
    EXPECT_EQ(Get("file"), std::string("01AB456789\0\0CD", 14));
}

TEST_P(BackendContract, WrittenBytesAreVisibleBeforeFlushAndClose) {
    const auto stream = Create("file", 4);
    WriteText(*stream, "0123");
    EXPECT_EQ(Get("file"), "0123");
}

TEST_P(BackendContract, AFileSurvivesAStreamThatIsDroppedUnclosed) {
    WriteText(*Create("file", 4), "0123");
    EXPECT_EQ(Get("file"), "0123");
}

TEST_P(BackendContract, ClosingIsSynchronousAndLeavesThePortAlone) {
    const auto port = std::make_shared<synch::completion_port_t>();
    const auto stream = Create("file", 4);
    WriteText(*stream, "0123");
    stream->Close(port);
    EXPECT_EQ(port.use_count(), 1) << "the stream keeps the port";
    EXPECT_NO_THROW(port->CheckForErrorsExc());
    EXPECT_EQ(Get("file"), "0123");
}

TEST_P(BackendContract, ClosingTwiceIsHarmless) {
    const auto stream = Create("file", 4);
    WriteText(*stream, "0123");
    stream->Close(nullptr);
    stream->Close(nullptr);
    stream->Flush();
    EXPECT_EQ(stream->GetPath(), Backend().StreamPath("file"));
    if (const deviation_t* const deviation = Without(EFeature::eCloses)) {
        SCOPED_TRACE(deviation->reason);
        WriteText(*stream, "45");
        EXPECT_EQ(Get("file"), "012345");
        return;
    }
    tests::Catch([&] { WriteText(*stream, "45"); });
    tests::Catch([&] { stream->WriteZeroes(2); });
    tests::Catch([&] { stream->SeekTo(0); });
    EXPECT_EQ(Get("file"), "0123");
}

}  // namespace contract
