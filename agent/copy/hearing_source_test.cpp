#include "agent/copy/hearing_source.h"

#include <gtest/gtest.h>

#include "agent/copy/empty_source.h"
#include "agent/staging/report_kind.h"
#include "tests/support/transfer_kit.h"

namespace agent::copy {
namespace {

TEST(HearingSource, ReportsOfTheFarEndBecomeWarningsWithControlBytesEscaped) {
    entry_outcome_t outcome;
    hearing_source_t source(std::make_shared<empty_source_t>("name"), outcome);
    source.OnEntryReports({{1, 0, "a\nb", "Failed to set owner of [a\x1b]"}, {2, 0, "c", "text"}});
    const item_sink_t::committed_t heard = outcome.Take();
    ASSERT_EQ(heard.warnings.size(), 2u);
    EXPECT_EQ(heard.warnings[0].path, "a\\nb");
    EXPECT_EQ(heard.warnings[0].text, "Failed to set owner of [a\\x1b]");
    EXPECT_EQ(heard.warnings[1].path, "c");
    EXPECT_TRUE(heard.lost.empty());
}

TEST(HearingSource, EntriesThatWereLostAreToldByNumberAndAreNoWarnings) {
    entry_outcome_t outcome;
    hearing_source_t source(std::make_shared<empty_source_t>("name"), outcome);
    source.OnEntryReports({{kEntryFailed, 7, "a", "No space\nleft"}, {1, 8, "b", "text"}});
    const item_sink_t::committed_t heard = outcome.Take();
    ASSERT_EQ(heard.lost.size(), 1u);
    EXPECT_EQ(heard.lost[0].number, 7u);
    EXPECT_EQ(heard.lost[0].text, "No space\\nleft");
    ASSERT_EQ(heard.warnings.size(), 1u);
    EXPECT_EQ(heard.warnings[0].path, "b");
    EXPECT_EQ(heard.warned, std::set<std::uint64_t>{8});
}

TEST(HearingSource, EverythingElseIsTheInnerSources) {
    entry_outcome_t outcome;
    hearing_source_t source(std::make_shared<empty_source_t>("name"), outcome);
    EXPECT_EQ(source.GetDisplayName(), "name");
    EXPECT_EQ(source.ReadNext(), nullptr);
    source.SetEmptyBlocksMaximum(1);
    EXPECT_TRUE(outcome.Take().warnings.empty());
}

class knowing_source_t final : public tests::block_source_dev_t, public io::area::IKnowsHoles {
  public:
    knowing_source_t() : block_source_dev_t(0, 1, {}) {}
    bool KnowsHoles() const noexcept override { return true; }
};

TEST(HearingSource, KnowsHolesWhenTheInnerSourceDoes) {
    entry_outcome_t outcome;
    EXPECT_FALSE(hearing_source_t(std::make_shared<empty_source_t>("name"), outcome).KnowsHoles());
    EXPECT_TRUE(hearing_source_t(std::make_shared<knowing_source_t>(), outcome).KnowsHoles());
}

}  // namespace
}  // namespace agent::copy
