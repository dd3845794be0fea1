#include "tarn/mem_rstream.h"

#include <limits>
#include <memory>
#include <string_view>

#include <gtest/gtest.h>

#include "mirrowen/exc/runtime_exc.h"
#include "tests/support/caught.h"

namespace {

using tarn::mem_rstream_t;
using buffer_t = cnt::array_t<char>;

std::shared_ptr<buffer_t> MakeBuffer(std::string_view text) {
    return std::make_shared<buffer_t>(text.begin(), text.end());
}

std::string Read(mem_rstream_t& stream, std::uint64_t count) {
    std::string text(64, '?');
    text.resize(stream.ReadExc(text.data(), count));
    return text;
}

TEST(MemRstreamTest, ThePathIsTheCallersOwn) {
    EXPECT_EQ(mem_rstream_t("mEmFs://Any", MakeBuffer("")).GetPath(), "mEmFs://Any");
}

TEST(MemRstreamTest, ReadsAreShortOnlyAtTheEnd) {
    mem_rstream_t stream("path", MakeBuffer("0123456789abcde"));
    EXPECT_EQ(Read(stream, 12), "0123456789ab");
    EXPECT_EQ(Read(stream, 8), "cde");
    EXPECT_EQ(Read(stream, 8), "");
    EXPECT_EQ(Read(stream, 0), "");
}

TEST(MemRstreamTest, ACountNearTheEndOfTheNumbersIsJustALongRead) {
    mem_rstream_t stream("path", MakeBuffer("0123456789"));
    EXPECT_EQ(Read(stream, 4), "0123");
    EXPECT_EQ(Read(stream, std::numeric_limits<std::uint64_t>::max()), "456789");
    EXPECT_EQ(Read(stream, std::numeric_limits<std::uint64_t>::max()), "");
}

TEST(MemRstreamTest, AnEmptyBufferIsAtItsEnd) {
    mem_rstream_t stream("path", MakeBuffer(""));
    EXPECT_EQ(stream.GetFileSize(), 0U);
    EXPECT_EQ(Read(stream, 1), "");
}

TEST(MemRstreamTest, SizeAndDataFollowAWriterAndABufferThatShrinks) {
    const auto buffer = MakeBuffer("0123");
    mem_rstream_t stream("path", buffer);
    EXPECT_EQ(Read(stream, 10), "0123");
    buffer->insert(buffer->end(), {'4', '5'});
    EXPECT_EQ(stream.GetFileSize(), 6U);
    EXPECT_EQ(Read(stream, 10), "45");
    buffer->resize(2);
    EXPECT_EQ(stream.GetFileSize(), 2U);
    EXPECT_EQ(Read(stream, 10), "") << "the position lies beyond the end";
}

TEST(MemRstreamTest, SeekingIsRefused) {
    mem_rstream_t stream("path", MakeBuffer("0123"));
    const auto caught = tests::Catch([&] { stream.SeekTo(0); });
    EXPECT_TRUE(caught.Is<exc::CRuntimeExc>());
    EXPECT_EQ(caught.what, "mem_rstream_t::SeekTo is not implemented.");
}

TEST(MemRstreamTest, FinishingEndsNothing) {
    mem_rstream_t stream("path", MakeBuffer("0123"));
    EXPECT_EQ(Read(stream, 2), "01");
    stream.FinishRead();
    EXPECT_EQ(Read(stream, 2), "23");
}

TEST(MemRstreamTest, TheStreamHoldsItsBuffer) {
    auto buffer = MakeBuffer("0123");
    const std::weak_ptr<buffer_t> watch = buffer;
    {
        mem_rstream_t stream("path", std::move(buffer));
        EXPECT_EQ(Read(stream, 4), "0123");
    }
    EXPECT_TRUE(watch.expired());
}

}  // namespace
