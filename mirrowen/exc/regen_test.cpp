#include "mirrowen/exc/regen.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "mirrowen/exc/already_exists_exc.h"
#include "tests/support/caught_error.h"
#include "tests/support/log_capture.h"

namespace {

using logging::ELevel;
using tests::CatchError;

template <class Regen>
tests::caught_error_t regenerate(Regen regen) {
    return CatchError([&] {
        try {
            throw std::invalid_argument("disk on fire");
        } catch (const std::exception&) {
            regen();
        }
    });
}

TEST(RegenExc, PutsANewMessageOverTheCurrentError) {
    const tests::log_capture_t log;
    const auto caught = regenerate([] { exc::RegenExc("Failed to copy [%1].", "a%1"); });
    EXPECT_THAT(caught, tests::Throws("exc::CRuntimeExc", "Failed to copy [a%1]."));
    EXPECT_THAT(caught.causes, testing::ElementsAre("disk on fire"));
    EXPECT_THAT(caught.causeTypes, testing::ElementsAre("std::invalid_argument"));
    EXPECT_TRUE(log.Lines().empty());
}

TEST(RegenTraceExc, LeavesALineWithTheCausesInTheTrace) {
    const tests::log_capture_t log;
    const auto caught = regenerate([] { exc::RegenTraceExc("Failed to copy [%1].", "a"); });
    EXPECT_THAT(caught, tests::Throws("exc::CRuntimeExc", "Failed to copy [a]."));
    EXPECT_THAT(caught.causes, testing::ElementsAre("disk on fire"));
    ASSERT_EQ(log.Lines().size(), 1U);
    EXPECT_EQ(log.Lines()[0].level, ELevel::eTrace);
    EXPECT_EQ(log.Lines()[0].section, "exc");
    EXPECT_EQ(log.Lines()[0].text, "Failed to copy [a].\ndisk on fire");
}

TEST(RegenExc, ChainsGrowWithEveryFloor) {
    const auto caught = CatchError([] {
        try {
            try {
                throw exc::CAlreadyExistsExc("there");
            } catch (const std::exception&) {
                exc::RegenExc("middle");
            }
        } catch (const std::exception&) {
            exc::RegenExc("outer");
        }
    });
    EXPECT_EQ(caught.what, "outer\nmiddle\nthere");
    EXPECT_THAT(caught.causeTypes, testing::ElementsAre("exc::CRuntimeExc", "exc::CAlreadyExistsExc"));
}

}  // namespace
