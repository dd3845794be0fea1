#include "agent/staging/item_dev.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "agent/meta/item_warnings.h"
#include "tests/support/fake_user_names.h"
#include "tests/support/log_capture.h"
#include "tests/support/staging_fixture.h"

namespace agent {
namespace {

using reports_t = std::vector<brannock::transmission::entry_report_t>;

class ItemDev : public tests::staging_fixture_t {
  protected:
    // A file of an owner whom nobody here knows by name.
    static item_t StrangersFile(const std::string& path) {
        item_t item = File(path);
        item.info.type = util::EFileType::eRegular;
        item.info.mode = 0600;
        item.info.owner = {"stranger", static_cast<std::uint32_t>(::geteuid())};
        item.info.group = {"", static_cast<std::uint32_t>(::getegid())};
        return item;
    }

    static reports_t Take(const dev_t& dev) {
        return dynamic_cast<brannock::transmission::IEntryReporter&>(*dev).TakeEntryReports();
    }

    tests::fake_user_names_t names_;
    tests::log_capture_t log_;
};

TEST_F(ItemDev, WhatCouldNotBeAppliedIsReportedToTheFarEndOnce) {
    const dev_t dev = Make(StrangersFile("new"));
    dev->Finish(nullptr);
    const reports_t reports = Take(dev);
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_EQ(reports[0].kind, static_cast<std::uint32_t>(util::EMetaProblem::eNoOwner));
    EXPECT_EQ(reports[0].path, Root().Shown("new"));
    EXPECT_NE(reports[0].text.find(Root().Shown("new")), std::string::npos) << reports[0].text;
    EXPECT_TRUE(Take(dev).empty());
}

TEST_F(ItemDev, ReportsThatNobodyTookAreLogged) {
    Make(StrangersFile("new"))->Finish(nullptr);
    EXPECT_EQ(log_.Texts(logging::ELevel::eWarn).size(), 1u);
}

TEST_F(ItemDev, ReportsThatWereTakenAreNotLogged) {
    {
        const dev_t dev = Make(StrangersFile("new"));
        dev->Finish(nullptr);
        EXPECT_FALSE(Take(dev).empty());
    }
    EXPECT_TRUE(log_.Texts(logging::ELevel::eWarn).empty());
}

TEST_F(ItemDev, WarningsForTheThreadsCollectorAreNotReportedAsWell) {
    const auto collected = std::make_shared<item_warnings_t>();
    const warning_scope_t scope(collected);
    const dev_t dev = Make(StrangersFile("new"));
    dev->Finish(nullptr);
    EXPECT_EQ(collected->Count(), 1u);
    EXPECT_TRUE(Take(dev).empty());
}

TEST_F(ItemDev, OwnersGoByNameUnlessTheReceiverTakesNumbers) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root can give files away";
    }
    names_.users["ann"] = 23456;
    item_t item = StrangersFile("by name");
    item.info.owner = {"ann", 12345};
    Make(item)->Finish(nullptr);
    EXPECT_EQ(Root().Stat("by name").st_uid, 23456u);

    DropReceiver();
    staging_receiver_t numbers(std::make_shared<staging_t>(RootPtr()), util::EOwnerSource::eNumber);
    item.path = "by number";
    numbers.Receive(item, 0, EReplace::eNo)->Finish(nullptr);
    EXPECT_EQ(Root().Stat("by number").st_uid, 12345u);
}

}  // namespace
}  // namespace agent
