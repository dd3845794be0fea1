// Runs of zeroes, written or left as holes: the content is the same.
#include <algorithm>
#include <cstdint>
#include <random>

#include "tests/contract/backend_contract.h"

namespace contract {
namespace {

std::string Zeroes(std::size_t count) {
    return std::string(count, '\0');
}

void WriteZeroRun(tarn::file_wstream_t& stream, std::uint64_t count) {
    EXPECT_EQ(stream.WriteZeroes(count), count);
}

}  // namespace

TEST_P(BackendContract, AFileOfZeroesAloneHasItsLength) {
    const auto stream = Create("file", 100000);
    WriteZeroRun(*stream, 99999);
    WriteZeroRun(*stream, 1);
    stream->Close(nullptr);
    EXPECT_EQ(Get("file"), Zeroes(100000));
}

TEST_P(BackendContract, ZeroesAtTheStartInTheMiddleAndAtTheEnd) {
    const auto stream = Create("file", 16);
    WriteZeroRun(*stream, 3);
    WriteText(*stream, "abc");
    WriteZeroRun(*stream, 4);
    WriteText(*stream, "def");
    WriteZeroRun(*stream, 3);
    stream->Close(nullptr);
    EXPECT_EQ(Get("file"), Zeroes(3) + "abc" + Zeroes(4) + "def" + Zeroes(3));
}

TEST_P(BackendContract, ZeroesBeyondTheCreatedLengthGrowTheFile) {
    const auto stream = Create("file", 5);
    WriteZeroRun(*stream, 3);
    WriteZeroRun(*stream, 10);
    stream->Close(nullptr);
    EXPECT_EQ(Get("file"), Zeroes(13));
}

TEST_P(BackendContract, ARunOfNoZeroesChangesNothing) {
    const auto stream = Create("file", 2);
    WriteZeroRun(*stream, 0);
    WriteText(*stream, "ab");
    WriteZeroRun(*stream, 0);
    stream->Close(nullptr);
    EXPECT_EQ(Get("file"), "ab");
}

TEST_P(BackendContract, ZeroesReplaceOldBytes) {
    if (const deviation_t* const deviation = Without(EFeature::eUpdate)) {
        return ExpectRefusal(*deviation, Path("file"), [&] { Fs().OpenFile4Write(Path("file"), 6); });
    }
    Put("file", "012345");
    const auto stream = Fs().OpenFile4Write(Path("file"), 6);
    WriteZeroRun(*stream, 4);
    stream->Close(nullptr);
    EXPECT_EQ(Get("file"), Zeroes(4) + "45");
}

TEST_P(BackendContract, ZeroesReplaceBytesThatTheStreamItselfWrote) {
    if (const deviation_t* const deviation = Without(EFeature::eWriteSeek)) {
        return ExpectRefusal(*deviation, Path("file"), [&] { Create("file")->SeekTo(0); });
    }
    const auto stream = Create("file", 1000);
    WriteText(*stream, std::string(500, 'x'));
    stream->SeekTo(0);
    WriteZeroRun(*stream, 100);
    stream->SeekTo(900);
    WriteZeroRun(*stream, 300);
    stream->Close(nullptr);
    EXPECT_EQ(Get("file"), Zeroes(100) + std::string(400, 'x') + Zeroes(700));
}

// The same operations on the file and on a string in memory end in the same bytes.
TEST_P(BackendContract, AnyMixOfBytesZeroesAndSeeksMatchesTheModel) {
    const bool seeks = Without(EFeature::eWriteSeek) == nullptr;
    for (std::uint32_t seed = 1; seed <= 20; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::mt19937 random(seed);
        const auto pick = [&](std::uint32_t below) { return static_cast<std::size_t>(random() % below); };
        const std::size_t length = Without(EFeature::ePresize) != nullptr ? 0 : pick(3000);
        const auto stream = Fs().CreateNewFile(Path("file"), length, true);
        std::string model = Zeroes(length);
        std::size_t at = 0;
        const auto apply = [&](const std::string& bytes) {
            model.resize(std::max(model.size(), at + bytes.size()));
            model.replace(at, bytes.size(), bytes);
            at += bytes.size();
        };
        for (int step = 0; step != 40; ++step) {
            const std::size_t count = pick(200);
            switch (pick(seeks ? 3 : 2)) {
                case 0:
                    apply(std::string(count, static_cast<char>('a' + step % 26)));
                    WriteText(*stream, std::string(count, static_cast<char>('a' + step % 26)));
                    break;
                case 1:
                    apply(Zeroes(count));
                    WriteZeroRun(*stream, count);
                    break;
                default:
                    at = pick(2500);
                    stream->SeekTo(at);
                    break;
            }
        }
        stream->Close(nullptr);
        ASSERT_EQ(Get("file"), model);
    }
}

}  // namespace contract
