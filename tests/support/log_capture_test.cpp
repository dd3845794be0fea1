#include "tests/support/log_capture.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <thread>
#include <vector>

#include "mirrowen/logging/log_section.h"

namespace {

using logging::ELevel;

constinit logging::log_section_t g_section{"part"};

TEST(LogCapture, KeepsLevelSectionTextAndError) {
    const tests::log_capture_t log;
    g_section.tr("first %1", "x");
    g_section.warn("second", std::runtime_error("why"));
    const std::vector<tests::log_line_t> lines = log.Lines();
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0].level, ELevel::eTrace);
    EXPECT_EQ(lines[0].text, "first x");
    EXPECT_EQ(lines[1].section, "part");
    EXPECT_EQ(lines[1].error, "why");
    EXPECT_TRUE(log.Has(ELevel::eTrace, "first x"));
    EXPECT_FALSE(log.Has(ELevel::eInfo, "first x"));
    EXPECT_EQ(log.Dump(), "trace part: first x\nwarn part: second | why\n");
}

TEST(LogCapture, SinkAndThresholdReturn) {
    const ELevel before = logging::GetThreshold();
    {
        const tests::log_capture_t outer(ELevel::eErr);
        EXPECT_EQ(logging::GetThreshold(), ELevel::eErr);
        {
            const tests::log_capture_t inner;
            g_section.err("inside");
        }
        g_section.err("outside");
        EXPECT_EQ(outer.Texts(ELevel::eErr), std::vector<std::string>{"outside"});
    }
    EXPECT_EQ(logging::GetThreshold(), before);
}

TEST(LogCapture, TakesLinesFromManyThreads) {
    const tests::log_capture_t log;
    {
        std::vector<std::jthread> threads;
        for (int i = 0; i < 4; ++i) {
            threads.emplace_back([] {
                for (int line = 0; line < 100; ++line) {
                    g_section.info("line");
                }
            });
        }
    }
    EXPECT_EQ(log.Count(ELevel::eInfo, "line"), 400U);
}

}  // namespace
