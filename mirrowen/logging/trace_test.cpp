#include "mirrowen/logging/trace.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "tests/support/log_capture.h"

namespace {

using logging::ELevel;
using logging::trace_fail_t;
using logging::trace_t;
using testing::ElementsAre;
using testing::IsEmpty;

constinit logging::log_section_t g_section{"room"};

TEST(Trace, LogsOpeningAndSuccess) {
    const tests::log_capture_t log;
    {
        trace_t trace(g_section, "Copy [%1]", "a");
        trace.ok("Copied");
    }
    EXPECT_THAT(log.Texts(ELevel::eTrace), ElementsAre("Copy [a]", "Copied"));
    EXPECT_EQ(log.Lines().size(), 2U);
}

TEST(Trace, SuccessWithoutTextClosesSilently) {
    const tests::log_capture_t log;
    {
        trace_t trace(g_section, "Copy%1");
        trace.ok();
    }
    EXPECT_THAT(log.Texts(ELevel::eTrace), ElementsAre("Copy%1"));
}

TEST(Trace, EndWithoutOkIsRecordedAsFailure) {
    const tests::log_capture_t log;
    EXPECT_THROW(
        {
            const trace_t trace(g_section, "Copy [%1]", "a%1");
            throw std::runtime_error("x");
        },
        std::runtime_error);
    EXPECT_THAT(log.Texts(ELevel::eTrace), ElementsAre("Copy [a%1]", "Failed: Copy [a%1]"));
}

TEST(TraceFail, IsSilentOnSuccess) {
    const tests::log_capture_t log;
    {
        trace_fail_t trace(g_section, "Read [%1]", "a");
        trace.ok();
    }
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST(TraceFail, SuccessTextIsLogged) {
    const tests::log_capture_t log;
    {
        trace_fail_t trace(g_section, "Read [%1]", "a");
        trace.ok("done");
    }
    EXPECT_THAT(log.Texts(ELevel::eTrace), ElementsAre("done"));
}

TEST(TraceFail, EndWithoutOkLeavesTheText) {
    const tests::log_capture_t log;
    { const trace_fail_t trace(g_section, "Read [%1]", 5); }
    EXPECT_THAT(log.Texts(ELevel::eTrace), ElementsAre("Failed: Read [5]"));
    EXPECT_EQ(log.Lines().size(), 1U);
}

static_assert(std::is_nothrow_destructible_v<trace_t> && std::is_nothrow_destructible_v<trace_fail_t>);

}  // namespace
