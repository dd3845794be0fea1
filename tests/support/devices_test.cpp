#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <string>
#include <thread>

#include "tests/support/caught_error.h"
#include "tests/support/duplex_dev.h"
#include "tests/support/recording_dev.h"
#include "tests/support/short_dev.h"

namespace {

std::string read_some(io::io_dev_t& dev, std::size_t count) {
    std::string buffer(count, '\0');
    buffer.resize(dev.Read(buffer.data(), count));
    return buffer;
}

TEST(DuplexDev, BytesCrossInBothDirections) {
    const tests::duplex_dev_t pair;
    pair.Left()->Write("ping", 4);
    EXPECT_EQ(read_some(*pair.Right(), 100), "ping");
    pair.Right()->Write("pong", 4);
    EXPECT_EQ(read_some(*pair.Left(), 2), "po");
    EXPECT_EQ(read_some(*pair.Left(), 100), "ng");
}

TEST(DuplexDev, WriterWaitsUntilTheReaderMadeRoom) {
    const tests::duplex_dev_t pair(3);
    const std::string sent = "more than three bytes";
    std::jthread writer([&] {
        pair.Left()->Write(sent.data(), sent.size());
        pair.Left()->CloseWrite();
    });
    std::string got;
    for (std::string piece = read_some(*pair.Right(), 100); !piece.empty(); piece = read_some(*pair.Right(), 100)) {
        EXPECT_LE(piece.size(), 3U);
        got += piece;
    }
    EXPECT_EQ(got, sent);
}

TEST(DuplexDev, ClosedPeerEndsReadsAndRefusesWrites) {
    const tests::duplex_dev_t pair;
    pair.Left()->Write("last", 4);
    pair.Left()->Close();
    EXPECT_EQ(read_some(*pair.Right(), 100), "last");
    EXPECT_EQ(read_some(*pair.Right(), 100), "");
    EXPECT_THAT(tests::CatchError([&] { pair.Right()->Write("x", 1); }),
                tests::Throws("exc::CRuntimeExc", "The test connection is closed."));
}

TEST(DuplexDev, WaitForASilentPeerIsBounded) {
    const tests::duplex_dev_t pair(1, std::chrono::milliseconds(1));
    EXPECT_THAT(tests::CatchError([&] { read_some(*pair.Left(), 1); }),
                tests::ThrowsText("Timed out on the test connection."));
    EXPECT_THAT(tests::CatchError([&] { pair.Left()->Write("ab", 2); }),
                tests::ThrowsText("Timed out on the test connection."));
}

TEST(RecordingDev, ServesTheScriptAndKeepsWhatIsWritten) {
    tests::recording_dev_t dev("script");
    EXPECT_EQ(read_some(dev, 4), "scri");
    EXPECT_EQ(dev.Unread(), 2U);
    EXPECT_EQ(read_some(dev, 4), "pt");
    EXPECT_EQ(read_some(dev, 4), "");
    EXPECT_EQ(dev.Write("ab", 2), 2U);
    EXPECT_EQ(dev.Write("c", 1), 1U);
    dev.Flush();
    EXPECT_EQ(dev.Written(), "abc");
    EXPECT_EQ(dev.Flushes(), 1);
}

TEST(ShortDev, ReadsInPiecesAndIsFullAtItsLimit) {
    const auto inner = std::make_shared<tests::recording_dev_t>("abcdef");
    tests::short_dev_t dev(inner, 2, 3);
    EXPECT_EQ(read_some(dev, 100), "ab");
    EXPECT_EQ(dev.Write("12", 2), 2U);
    EXPECT_EQ(dev.Write("345", 3), 1U);
    EXPECT_EQ(dev.Write("6", 1), 0U);
    EXPECT_EQ(inner->Written(), "123");
}

}  // namespace
