#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "mirrowen/logging/log_section.h"
#include "mirrowen/logging/log_sink.h"
#include "mirrowen/logging/sink_holder.h"

namespace {

using logging::ELevel;
using testing::HasSubstr;
using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

constinit logging::log_section_t g_section{"room"};

TEST(StderrSink, ProcessWithoutSettingsPrintsWarningsAndErrorsOnly) {
    CaptureStderr();
    g_section.tr("the trace");
    g_section.info("the info");
    g_section.warn("the warning");
    g_section.err("the error");
    const std::string printed = GetCapturedStderr();
    EXPECT_THAT(printed, testing::Not(HasSubstr("the trace")));
    EXPECT_THAT(printed, testing::Not(HasSubstr("the info")));
    EXPECT_THAT(printed, HasSubstr(" warning room: the warning\n"));
    EXPECT_THAT(printed, HasSubstr(" error room: the error\n"));
}

TEST(StderrSink, RecordIsOneLineWithItsErrorAtTheEnd) {
    CaptureStderr();
    g_section.err("a\nb\x1b[2J", std::runtime_error("outer\ncause"));
    const std::string printed = GetCapturedStderr();
    EXPECT_THAT(printed, testing::EndsWith(" error room: a\\nb\\x1b[2J | outer\\ncause\n"));
    EXPECT_EQ(std::count(printed.begin(), printed.end(), '\n'), 1);
}

TEST(StderrSink, BracesInATextAreNoFormat) {
    CaptureStderr();
    logging::MakeStderrSink()->Write({ELevel::eErr, "room", "{} {0} %v", {}});
    EXPECT_THAT(GetCapturedStderr(), testing::EndsWith("room: {} {0} %v\n"));
}

TEST(SetSink, EmptySinkRestoresTheDefault) {
    class silent_sink_t final : public logging::ILogSink {
        void Write(const logging::record_t& /*record*/) noexcept override {}
    };
    const auto silent = std::make_shared<silent_sink_t>();
    logging::SetSink(silent);
    EXPECT_EQ(logging::SetSink(nullptr), silent);
    CaptureStderr();
    g_section.err("heard");
    EXPECT_THAT(GetCapturedStderr(), HasSubstr("heard"));
}

TEST(EscapeControls, EveryControlByteIsWrittenAsText) {
    EXPECT_EQ(logging::EscapeControls("a\nb\tc\r\x7f"), "a\\nb\\x09c\\x0d\\x7f");
    EXPECT_EQ(logging::EscapeControls(std::string("\0", 1)), "\\x00");
    EXPECT_EQ(logging::EscapeControls("caf\xc3\xa9 \xf0\x9f\x98\x80"), "caf\xc3\xa9 \xf0\x9f\x98\x80");
    EXPECT_EQ(logging::EscapeControls(""), "");
}

TEST(EscapeControls, WhatATerminalMayTakeForAControlIsWrittenAsTextToo) {
    EXPECT_EQ(logging::EscapeControls("\xc2\x9b"
                                      "1m\xc2\xa0"),
              "\\xc2\\x9b1m\xc2\xa0");
    EXPECT_EQ(logging::EscapeControls("\x9b \xff \xc3"), "\\x9b \\xff \\xc3");
}

}  // namespace
