#include "agent/verify/compare_content.h"

#include <gtest/gtest.h>

#include <deque>
#include <memory>
#include <string>
#include <utility>

#include "tests/support/blocks.h"

namespace agent::verify {
namespace {

// Delivers pieces; one that is all dots is a hole of that length.
class pieces_t final : public io::area::area_read_dev_t {
  public:
    explicit pieces_t(std::deque<std::string> pieces) : pieces_(std::move(pieces)) {}

    std::shared_ptr<io::area::IArea> ReadNext() override {
        if (pieces_.empty()) {
            return nullptr;
        }
        const std::string piece = pieces_.front();
        pieces_.pop_front();
        auto block = piece.find_first_not_of('.') == std::string::npos && !piece.empty()
                         ? io::block::CFibBlock::NewSparseBlock(offset_, 0, piece.size())
                         : tests::DataBlock(offset_, piece);
        offset_ += piece.size();
        return std::make_shared<io::area::CDataArea>(0, std::move(block));
    }
    std::string GetDisplayName() override { return "pieces"; }
    void SetEmptyBlocksMaximum(std::uint64_t) override {}

  private:
    std::deque<std::string> pieces_;
    std::uint64_t offset_ = 0;
};

struct outcome_t {
    std::string text;
    std::uint64_t bytes = 0;
    friend bool operator==(const outcome_t&, const outcome_t&) = default;
    friend std::ostream& operator<<(std::ostream& out, const outcome_t& o) { return out << o.text << " " << o.bytes; }
};

outcome_t Compare(std::deque<std::string> first, std::deque<std::string> second) {
    pieces_t left(std::move(first));
    pieces_t right(std::move(second));
    outcome_t outcome;
    outcome.text = CompareContent(left, right, outcome.bytes).value_or("equal");
    return outcome;
}

TEST(CompareContent, HowTheContentIsCutMakesNoDifference) {
    EXPECT_EQ(Compare({"abc", "defg", "", "h"}, {"a", "bcdefgh"}), (outcome_t{"equal", 8}));
    EXPECT_EQ(Compare({}, {}), (outcome_t{"equal", 0}));
    EXPECT_EQ(Compare({""}, {}), (outcome_t{"equal", 0}));
}

TEST(CompareContent, HoleEqualsItsZeroesAndNothingElse) {
    const std::string zeroes(3, '\0');
    EXPECT_EQ(Compare({"a", "...", "b"}, {"a" + zeroes + "b"}), (outcome_t{"equal", 5}));
    EXPECT_EQ(Compare({"a", "...", "b"}, {"a", "..", std::string(1, '\0'), "b"}), (outcome_t{"equal", 5}));
    EXPECT_EQ(Compare({"a", "...", "b"}, {"a" + zeroes.substr(1) + "xb"}), (outcome_t{"content differs at byte 3", 3}));
    EXPECT_EQ(Compare({"a" + zeroes.substr(1) + "xb"}, {"a", "...", "b"}), (outcome_t{"content differs at byte 3", 3}));
}

TEST(CompareContent, FirstByteThatDiffersIsNamed) {
    EXPECT_EQ(Compare({"abc", "def"}, {"ab", "cdxf"}), (outcome_t{"content differs at byte 4", 4}));
    EXPECT_EQ(Compare({"x"}, {"y"}), (outcome_t{"content differs at byte 0", 0}));
}

TEST(CompareContent, SideThatEndsEarlyIsNamed) {
    EXPECT_EQ(Compare({"abc"}, {"ab"}), (outcome_t{"the second ends at byte 2", 2}));
    EXPECT_EQ(Compare({"ab"}, {"abc"}), (outcome_t{"the first ends at byte 2", 2}));
}

}  // namespace
}  // namespace agent::verify
