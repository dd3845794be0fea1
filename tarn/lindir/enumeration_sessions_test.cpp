#include <deque>
#include <filesystem>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "mirrowen/guid/guid.h"
#include "mirrowen/util/str.h"
#include "tarn/lindir/lin_dir_enum.h"
#include "tarn/tarn_context.h"
#include "tests/support/caught_error.h"
#include "tests/support/temp_dir.h"

/// The enumeration sessions of the context.
namespace tarn {
namespace {

using testing::ElementsAre;
using tests::CatchError;
using tests::Throws;
using tests::ThrowsText;

static_assert(std::is_same_v<decltype(&CTarnContext::StartEnumFiles),
                             std::string (CTarnContext::*)(const std::wstring&, std::wstring&)>);
static_assert(std::is_same_v<decltype(&CTarnContext::StartEnumFilesRecursive),
                             std::string (CTarnContext::*)(const std::wstring&, std::wstring&, std::wstring&)>);
static_assert(std::is_same_v<decltype(&CTarnContext::EnumFilesGetNext),
                             bool (CTarnContext::*)(const std::string&, std::wstring&)>);

/// A context of its own, beside the process's, whose sessions can be seen and made.
class own_context_t : public CTarnContext {
  public:
    using CTarnContext::Enumerations;
};

/// Answers as it was told, and fails when it has no answer left.
class told_enumerator_t : public lindir::lin_dir_enum {
  public:
    told_enumerator_t(std::deque<bool> answers, std::vector<std::string>& calls)
        : answers_(std::move(answers)), calls_(calls) {}
    ~told_enumerator_t() override { calls_.emplace_back("gone"); }

    bool GetNext(std::wstring& xml) override { return Answer("GetNext", xml); }
    bool GetNextRecursive(std::wstring& xml) override { return Answer("GetNextRecursive", xml); }

  private:
    bool Answer(const char* call, std::wstring& xml) {
        calls_.emplace_back(call);
        if (answers_.empty()) {
            throw std::runtime_error("no answer");
        }
        const bool answer = answers_.front();
        answers_.pop_front();
        xml = answer ? L"next" : xml;
        return answer;
    }

    std::deque<bool> answers_;
    std::vector<std::string>& calls_;
};

class EnumerationSessions : public testing::Test {
  protected:
    EnumerationSessions() { tests::WriteFile(dir_ / "file", "text"); }

    std::wstring Wide(const std::string& name) const { return util::str_utf82w(dir_ / name); }
    void Tell(const std::string& id, std::deque<bool> answers) {
        context_.Enumerations()[id] = std::make_shared<told_enumerator_t>(std::move(answers), calls_);
    }

    tests::temp_dir_t dir_;
    std::vector<std::string> calls_;
    own_context_t context_;
    std::wstring xml_;
    std::wstring mask_ = L"*";
};

TEST_F(EnumerationSessions, AFileIsDescribedUnderTheEnumeratorsIdentifier) {
    const std::string id = context_.StartEnumFiles(Wide("file"), xml_);
    EXPECT_EQ(guid::guid_t::FromAStr(id).ToAStr(), id);
    EXPECT_NE(xml_.find(L"file_name=\"file\""), std::wstring::npos);
    EXPECT_EQ(context_.Enumerations().size(), 1U);
    EXPECT_EQ(context_.Enumerations().count(id), 1U);
    EXPECT_NE(context_.StartEnumFiles(Wide("file"), xml_), id);
    EXPECT_EQ(context_.Enumerations().size(), 2U);
}

TEST_F(EnumerationSessions, TheNextEntryOfAFileIsRefusedAndTheSessionStays) {
    const std::string id = context_.StartEnumFiles(Wide("file"), xml_);
    EXPECT_THAT(CatchError([&] { context_.EnumFilesGetNext(id, xml_); }),
                Throws("std::runtime_error", "tarn/lindir/lin_dir_enum:GetNext -- not supported on this platform"));
    EXPECT_THAT(
        CatchError([&] { context_.EnumFilesGetNextRecursive(id, xml_); }),
        Throws("std::runtime_error", "tarn/lindir/lin_dir_enum:GetNextRecursive -- not supported on this platform"));
    EXPECT_EQ(context_.Enumerations().size(), 1U);
}

TEST_F(EnumerationSessions, FailingStartComesThroughAndLeavesNoSession) {
    const std::string refusal = "tarn/lindir/LinFileOp:GetDirDescExc -- not supported on this platform";
    EXPECT_THAT(CatchError([&] { context_.StartEnumFiles(Wide(""), xml_); }), Throws("std::runtime_error", refusal));
    EXPECT_THAT(CatchError([&] { context_.StartEnumFilesRecursive(Wide(""), mask_, xml_); }),
                Throws("std::runtime_error", refusal));
    EXPECT_EQ(CatchError([&] { context_.StartEnumFiles(Wide("missing"), xml_); }).type, "posix::errno_exc_t");
    EXPECT_TRUE(context_.Enumerations().empty());
}

TEST_F(EnumerationSessions, SessionGivesEntriesUntilItsEnd) {
    Tell("id", {true, false});
    EXPECT_TRUE(context_.EnumFilesGetNext("id", xml_));
    EXPECT_EQ(xml_, L"next");
    EXPECT_FALSE(context_.EnumFilesGetNext("id", xml_));
    EXPECT_FALSE(context_.EnumFilesGetNext("id", xml_));
    EXPECT_THAT(calls_, ElementsAre("GetNext", "GetNext", "gone"));
}

TEST_F(EnumerationSessions, RecursiveSessionGivesEntriesUntilItsEnd) {
    Tell("id", {true, false});
    EXPECT_TRUE(context_.EnumFilesGetNextRecursive("id", xml_));
    EXPECT_FALSE(context_.EnumFilesGetNextRecursive("id", xml_));
    EXPECT_THAT(calls_, ElementsAre("GetNextRecursive", "GetNextRecursive", "gone"));
}

TEST_F(EnumerationSessions, FailureOfAnEntryComesThroughAndTheSessionStays) {
    Tell("id", {});
    EXPECT_THAT(CatchError([&] { context_.EnumFilesGetNext("id", xml_); }), ThrowsText("no answer"));
    EXPECT_THAT(CatchError([&] { context_.EnumFilesGetNextRecursive("id", xml_); }), ThrowsText("no answer"));
    EXPECT_EQ(context_.Enumerations().size(), 1U);
}

TEST_F(EnumerationSessions, UnknownSessionHasNoEntriesAndNothingToClose) {
    Tell("id", {true});
    xml_ = L"before";
    EXPECT_FALSE(context_.EnumFilesGetNext("other", xml_));
    EXPECT_FALSE(context_.EnumFilesGetNextRecursive("other", xml_));
    context_.CloseFilesEnum("other");
    EXPECT_EQ(xml_, L"before");
    EXPECT_TRUE(calls_.empty());
    EXPECT_EQ(context_.Enumerations().size(), 1U);
}

TEST_F(EnumerationSessions, ClosedSessionIsGoneAndItsEnumeratorGoesWithItsLastUser) {
    Tell("id", {});
    const auto held = context_.Enumerations().at("id");
    context_.CloseFilesEnum("id");
    context_.CloseFilesEnum("id");
    EXPECT_FALSE(context_.EnumFilesGetNext("id", xml_));
    EXPECT_TRUE(calls_.empty());
}

TEST_F(EnumerationSessions, ContextTakesItsSessionsAlong) {
    {
        own_context_t context;
        context.Enumerations()["id"] = std::make_shared<told_enumerator_t>(std::deque<bool>{}, calls_);
    }
    EXPECT_THAT(calls_, ElementsAre("gone"));
}

}  // namespace
}  // namespace tarn
