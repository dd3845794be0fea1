#include "agent/copy/whole_content.h"

#include <gtest/gtest.h>

#include <string>

#include "agent/copy/empty_source.h"
#include "tests/support/caught.h"
#include "tests/support/transfer_kit.h"

namespace agent::copy {
namespace {

std::string TextOf(const batch::extent_t& extent) {
    return {reinterpret_cast<const char*>(extent.data.data()), extent.data.size()};
}

// Blocks of 4 bytes, of which every second one is a hole.
tests::block_source_dev_t HalfSparse() {
    return {4, 4, [](std::uint64_t index) { return index % 2 == 0 ? "" : "da" + std::to_string(10 + index); }};
}

TEST(WholeContent, DataIsKeptAtItsPlaceAndHolesAreLeftOut) {
    tests::block_source_dev_t source = HalfSparse();
    const whole_content_t content(source, 16);
    ASSERT_EQ(content.Extents().size(), 2u);
    EXPECT_EQ(content.Extents()[0].offset, 4u);
    EXPECT_EQ(TextOf(content.Extents()[0]), "da11");
    EXPECT_EQ(content.Extents()[1].offset, 12u);
    EXPECT_EQ(TextOf(content.Extents()[1]), "da13");
}

TEST(WholeContent, NothingIsContent) {
    empty_source_t source("empty");
    EXPECT_TRUE(whole_content_t(source, 0).Extents().empty());
}

TEST(WholeContent, TooFewAndTooManyBytesAreRefused) {
    tests::block_source_dev_t fewer = HalfSparse();
    EXPECT_EQ(tests::Catch([&] { whole_content_t(fewer, 17); }).message, "[blocks] has [16] bytes instead of [17].");
    tests::block_source_dev_t more = HalfSparse();
    EXPECT_EQ(tests::Catch([&] { whole_content_t(more, 9); }).message, "[blocks] has [12] bytes instead of [9].");
}

class jumping_source_t final : public io::area::area_read_dev_t {
  public:
    std::shared_ptr<io::area::IArea> ReadNext() override {
        offset_ += 3;
        return std::make_shared<io::area::CDataArea>(0, tests::DataBlock(offset_ - 3, "12"));
    }
    std::string GetDisplayName() override { return "jumps"; }
    void SetEmptyBlocksMaximum(std::uint64_t /*maximum*/) override {}

  private:
    std::uint64_t offset_ = 0;
};

TEST(WholeContent, BytesOutOfTheirOrderAreRefused) {
    jumping_source_t source;
    EXPECT_EQ(tests::Catch([&] { whole_content_t(source, 5); }).message, "[jumps] goes on at [3] instead of [2].");
}

}  // namespace
}  // namespace agent::copy
