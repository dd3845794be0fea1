#include "mirrowen/logging/log_section.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <thread>
#include <type_traits>
#include <vector>

#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/logging/log_exc.h"
#include "tests/support/log_capture.h"

namespace {

using logging::ELevel;

constinit logging::log_section_t g_section{"room"};

static_assert(std::is_trivially_destructible_v<logging::log_section_t>, "sections are used in exit handlers");

TEST(LogSection, EachLevelHasItsOperation) {
    const tests::log_capture_t log;
    g_section.tr("t %1", 1);
    g_section.info("i %1", "x");
    g_section.warn("w");
    g_section.err("e [%1] [%2]", "a", "b");
    EXPECT_EQ(log.Dump(), "trace room: t 1\ninfo room: i x\nwarn room: w\nerr room: e [a] [b]\n");
}

TEST(LogSection, AttachedErrorTravelsBesideTheText) {
    const tests::log_capture_t log;
    const exc::CRuntimeExc error("outer", std::make_exception_ptr(std::runtime_error("cause")));
    g_section.info("i%1", error);
    g_section.warn("w", error);
    g_section.err("e", error);
    EXPECT_EQ(log.Dump(), "info room: i%1 | outer\ncause\nwarn room: w | outer\ncause\nerr room: e | outer\ncause\n");
}

TEST(LogSection, LinesBelowTheThresholdAreDropped) {
    const tests::log_capture_t log(ELevel::eWarn);
    g_section.tr("dropped");
    g_section.info("dropped %1", 1);
    g_section.info("dropped", std::runtime_error("x"));
    g_section.warn("kept");
    logging::SetThreshold(ELevel::eOff);
    g_section.err("dropped");
    EXPECT_EQ(log.Dump(), "warn room: kept\n");
}

TEST(LogSection, TextAloneIsLoggedAsItStands) {
    const tests::log_capture_t log;
    g_section.err("100%1");
    EXPECT_TRUE(log.Has(ELevel::eErr, "100%1"));
}

struct logs_at_its_end_t {
    ~logs_at_its_end_t() { g_section.warn("end of [%1]", "object"); }
};

TEST(LogSection, DestructorLogsWhileAnErrorIsOnItsWay) {
    const tests::log_capture_t log;
    EXPECT_THROW(
        {
            const logs_at_its_end_t object;
            throw std::runtime_error("on its way");
        },
        std::runtime_error);
    EXPECT_TRUE(log.Has(ELevel::eWarn, "end of [object]"));
}

TEST(LogSection, LinesOfManyThreadsStayWhole) {
    const tests::log_capture_t log;
    {
        std::vector<std::jthread> threads;
        for (int thread = 0; thread < 4; ++thread) {
            threads.emplace_back([thread] {
                for (int line = 0; line < 200; ++line) {
                    g_section.info("thread %1", thread);
                }
            });
        }
    }
    for (int thread = 0; thread < 4; ++thread) {
        EXPECT_EQ(log.Count(ELevel::eInfo, "thread " + std::to_string(thread)), 200U);
    }
}

TEST(LogSection, SinkMayBeReplacedWhileThreadsLog) {
    const tests::log_capture_t outer;
    std::jthread writer([](const std::stop_token& stop) {
        while (!stop.stop_requested()) {
            g_section.info("line");
        }
    });
    for (int i = 0; i < 100; ++i) {
        const tests::log_capture_t inner;
        g_section.warn("here");
        EXPECT_TRUE(inner.Has(ELevel::eWarn, "here"));
    }
}

TEST(LogExc, LogsContextAndErrorAtErrorLevel) {
    const tests::log_capture_t log;
    logging::LogExc(exc::CRuntimeExc("why"), "At ~stream_t()");
    EXPECT_EQ(log.Dump(), "err exc: At ~stream_t() | why\n");
}

}  // namespace
