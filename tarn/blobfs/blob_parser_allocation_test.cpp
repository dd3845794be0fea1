#include <atomic>
#include <cstdlib>
#include <new>

#include <gtest/gtest.h>

#include "tests/support/blob_fixture.h"

/// Notes the largest allocation of this program, which is why it is a program of its own.
namespace {

std::atomic<std::size_t> largest{0};

class BlobParserAllocation : public tests::blob_fixture_t {};

TEST_F(BlobParserAllocation, LengthInTheHeaderOfAFrameCostsNoMemory) {
    const std::string block = tests::LiteralBlock(std::string(1000, 'x'));
    const std::string frame = tests::wire_text_t().U32(0xF000000F).U32(0).U32(0xFFFFFFFF).Raw(block).Bytes();
    largest = 0;
    const auto caught = ApplyBytes(frame);
    const std::size_t seen = largest;
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
        largest = 0;
        EXPECT_TRUE(ApplyBytes(frame).thrown);
        EXPECT_LE(largest, 64U << 10U);
    }
}

TEST_F(BlobParserAllocation, WatchSeesAnAllocation) {
    largest = 0;
    ::operator delete(::operator new(123456));
    EXPECT_EQ(largest, 123456U);
}

}  // namespace

[[gnu::noinline]] void* operator new(std::size_t size) {
    std::size_t seen = largest;
    while (size > seen && !largest.compare_exchange_weak(seen, size)) {
    }
    if (void* const memory = std::malloc(size == 0 ? 1 : size)) {
        return memory;
    }
    throw std::bad_alloc();
}

[[gnu::noinline]] void operator delete(void* memory) noexcept {
    std::free(memory);
}

[[gnu::noinline]] void operator delete(void* memory, std::size_t /*size*/) noexcept {
    std::free(memory);
}
