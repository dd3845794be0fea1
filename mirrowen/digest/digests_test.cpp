#include "mirrowen/digest/digests.h"

#include <cstdio>

namespace digest {

namespace {

std::string Hex(const block_digest_t& digest) {
    std::string text;
    for (const std::uint8_t byte : digest) {
        char part[3];
        std::snprintf(part, sizeof(part), "%02x", byte);
        text += part;
    }
    return text;
}

block_digest_t DigestOf(std::string_view text) {
    return ComputeBlockDigest(std::as_bytes(std::span(text)));
}

TEST(BlockDigestTest, IsXxh3Of128BitsInCanonicalOrder) {
    EXPECT_EQ(Hex(DigestOf("")), "99aa06d3014798d86001c324468d497f");
    EXPECT_EQ(Hex(DigestOf("a")), "a96faf705af16834e6c632b61e964e1f");
    EXPECT_EQ(Hex(DigestOf("abc")), "06b05ab6733a618578af5f94892f3950");
}

TEST(DigestsTest, KeepsTheLastDigestOfEachBlock) {
    digests_t digests;
    EXPECT_TRUE(digests.GetAll().empty());
    digests.Register(7, DigestOf("a"));
    digests.Register(2, DigestOf("b"));
    digests.Register(7, DigestOf("c"));
    EXPECT_THAT(digests.GetAll(), ::testing::ElementsAre(std::pair(2U, DigestOf("b")), std::pair(7U, DigestOf("c"))));
}

TEST(DigestsTest, ManyThreadsMayRegister) {
    digests_t digests;
    std::vector<std::thread> threads;
    for (std::uint64_t first = 0; first < 4; ++first) {
        threads.emplace_back([&digests, first] {
            for (std::uint64_t index = first; index < 400; index += 4) {
                digests.Register(index, DigestOf("x"));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(digests.GetAll().size(), 400U);
}

}  // namespace

}  // namespace digest
