#include <new>

#include <gtest/gtest.h>

#include "tests/support/blob_fixture.h"
#include "tests/support/watched_allocations.h"

namespace {

using tests::largestAllocation;

class BlobParserAllocation : public tests::blob_fixture_t {};

TEST_F(BlobParserAllocation, LengthInTheHeaderOfAFrameCostsNoMemory) {
    const std::string block = tests::LiteralBlock(std::string(1000, 'x'));
    const std::string frame = tests::wire_text_t().U32(0xF000000F).U32(0).U32(0xFFFFFFFF).Raw(block).Bytes();
    largestAllocation = 0;
    const auto caught = ApplyBytes(frame);
    const std::size_t seen = largestAllocation;
    EXPECT_EQ(caught.causes.at(0),
              "Failed to decompress LZ4 block: Incorrect decompression result or length (result: '1000', expected "
              "length: '4294967295').");
    EXPECT_LE(seen, 300 * frame.size());
}

TEST_F(BlobParserAllocation, LengthsInCommandsCostNoMemory) {
    const std::string frames[] = {
        tests::BlobFrame(tests::blob_stream_t().Command(3, "/f", "data", 0xFFFFFFFF).Bytes()),
        tests::BlobFrame(tests::blob_stream_t().Write("/f", 0, "data", 0xFFFFFFFF).Bytes()),
        tests::BlobFrame(tests::blob_stream_t().Metadata("/f", "data", 0xFFFFFFFF).Bytes()),
    };
    for (const std::string& frame : frames) {
        largestAllocation = 0;
        EXPECT_TRUE(ApplyBytes(frame).thrown);
        EXPECT_LE(largestAllocation, 64U << 10U);
    }
}

TEST_F(BlobParserAllocation, WatchSeesAnAllocation) {
    largestAllocation = 0;
    ::operator delete(::operator new(123456));
    EXPECT_EQ(largestAllocation, 123456U);
}

}  // namespace
