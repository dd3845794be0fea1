#include "mirrowen/digest/stream_digest.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "mirrowen/digest/zero_blocks.h"

namespace digest {
namespace {

std::span<const std::byte> Bytes(const std::string& text) {
    return std::as_bytes(std::span(text));
}

block_digest_t Whole(const std::string& text) {
    return ComputeBlockDigest(Bytes(text));
}

std::string Pattern(std::size_t size) {
    std::string text(size, '\0');
    unsigned char next = 7;
    std::generate(text.begin(), text.end(),
                  [&next] { return static_cast<char>(next = static_cast<unsigned char>(next * 5 + 3)); });
    return text;
}

TEST(StreamDigest, OfNothingIsThatOfNoBytes) {
    EXPECT_EQ(stream_digest_t().Get(), Whole(""));
}

TEST(StreamDigest, DoesNotDependOnHowTheBytesAreCut) {
    const std::string text = Pattern(100'000);
    for (const std::size_t piece :
         {std::size_t{1}, std::size_t{240}, std::size_t{241}, std::size_t{4096}, text.size()}) {
        stream_digest_t digest;
        for (std::size_t at = 0; at < text.size(); at += piece) {
            digest.Add(Bytes(text).subspan(at, std::min(piece, text.size() - at)));
        }
        EXPECT_EQ(digest.Get(), Whole(text)) << piece;
    }
}

TEST(StreamDigest, ZeroesCountAsTheBytesThatTheyAre) {
    for (const std::size_t count : {std::size_t{0}, std::size_t{1}, std::size_t{16384}, std::size_t{50'001}}) {
        stream_digest_t digest;
        digest.Add(Bytes("a"));
        digest.AddZeroes(count);
        digest.Add(Bytes("b"));
        EXPECT_EQ(digest.Get(), Whole("a" + std::string(count, '\0') + "b")) << count;
    }
}

// Whatever comes before and behind, and however much of a block of the hash has begun.
TEST(StreamDigest, LongRunsOfZeroesCountAsTheBytesThatTheyAre) {
    const std::string text = Pattern(3000);
    const std::string zeroes(3 << 20, '\0');
    for (std::size_t before = 0; before < text.size(); before += 37) {
        const std::size_t count = 16'000 + before * 1001;
        stream_digest_t digest;
        stream_digest_t plain;
        for (stream_digest_t* const each : {&digest, &plain}) {
            each->Add(Bytes(text).first(before));
        }
        digest.AddZeroes(count);
        plain.Add(Bytes(zeroes).first(count));
        EXPECT_EQ(digest.Get(), plain.Get()) << before;
        for (const std::size_t behind : {std::size_t{1}, std::size_t{64}, before}) {
            digest.Add(Bytes(text).first(behind));
            plain.Add(Bytes(text).first(behind));
            EXPECT_EQ(digest.Get(), plain.Get()) << before << " " << behind;
        }
        digest.AddZeroes(count - before);
        plain.Add(Bytes(zeroes).first(count - before));
        EXPECT_EQ(digest.Get(), plain.Get()) << before;
    }
}

TEST(StreamDigest, LibraryIsTheOneWhoseHeaderWasCompiled) {
    EXPECT_TRUE(CanSkipZeroBlocks());
}

TEST(StreamDigest, MayBeAskedOnTheWay) {
    stream_digest_t digest;
    digest.Add(Bytes("ab"));
    EXPECT_EQ(digest.Get(), Whole("ab"));
    digest.Add(Bytes("c"));
    EXPECT_EQ(digest.Get(), Whole("abc"));
}

}  // namespace
}  // namespace digest
