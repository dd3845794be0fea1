#include "agent/copy/content_hasher.h"

#include <gtest/gtest.h>

#include <deque>
#include <span>

#include "agent/copy/steady_source.h"
#include "mirrowen/exc/exception.h"
#include "tests/support/blocks.h"

namespace agent::copy {
namespace {

class areas_t final : public io::area::area_read_dev_t {
  public:
    std::shared_ptr<io::area::IArea> ReadNext() override {
        if (blocks.empty()) {
            return nullptr;
        }
        auto block = blocks.front();
        blocks.pop_front();
        return std::make_shared<io::area::CDataArea>(0, std::move(block));
    }
    std::string GetDisplayName() override { return "areas"; }
    void SetEmptyBlocksMaximum(std::uint64_t) override {}

    std::deque<pool::CPoolPtr<io::block::CFibBlock>> blocks;
};

std::shared_ptr<areas_t> AbcHoleDef() {
    auto areas = std::make_shared<areas_t>();
    areas->blocks.push_back(tests::DataBlock(0, "abc"));
    areas->blocks.push_back(io::block::CFibBlock::NewSparseBlock(3, 1, 4));
    areas->blocks.push_back(tests::DataBlock(7, "def"));
    return areas;
}

digest::block_digest_t DigestOf(const std::string& text) {
    return digest::ComputeBlockDigest(std::as_bytes(std::span(text)));
}

const std::string kContent = "abc" + std::string(4, '\0') + "def";

TEST(ContentHasher, HolesCountAsTheZeroesThatTheyStandFor) {
    const auto hasher = std::make_shared<content_hasher_t>();
    hashed_source_t source(AbcHoleDef(), hasher);
    while (source.ReadNext()) {
    }
    EXPECT_EQ(hasher->Get(), (query::content_digest_t{10, DigestOf(kContent)}));
}

TEST(ContentHasher, FirstBytesEndWithinDataOrWithinAHole) {
    for (const std::uint64_t length : {0, 2, 3, 5, 8, 10}) {
        content_hasher_t hasher;
        EXPECT_EQ(HashFirst(*AbcHoleDef(), length, hasher), length);
        EXPECT_EQ(hasher.Get(), (query::content_digest_t{length, DigestOf(kContent.substr(0, length))})) << length;
    }
    content_hasher_t hasher;
    EXPECT_EQ(HashFirst(*AbcHoleDef(), 11, hasher), 10u);
}

TEST(SteadySource, EndsWithAnErrorWhenItsFileHasChanged) {
    bool changed = false;
    const auto count = [&] {
        steady_source_t source(AbcHoleDef(), [&] { return changed; });
        int areas = 0;
        while (source.ReadNext()) {
            ++areas;
        }
        return areas;
    };
    EXPECT_EQ(count(), 3);
    changed = true;
    try {
        count();
        FAIL();
    } catch (const exc::CException& error) {
        EXPECT_EQ(error.Message(), "File [areas] changed while it was read.");
    }
}

}  // namespace
}  // namespace agent::copy
