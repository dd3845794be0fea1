#include "tests/support/caught_error.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "mirrowen/exc/regen.h"
#include "mirrowen/exc/runtime_exc.h"

namespace {

using tests::CatchError;

TEST(CaughtError, TellsTypeMessageAndCauses) {
    const tests::caught_error_t caught = CatchError([] {
        try {
            throw std::invalid_argument("inner");
        } catch (const std::exception&) {
            exc::RegenExc("outer [%1]", "x");
        }
    });
    EXPECT_THAT(caught, tests::Throws("exc::CRuntimeExc", "outer [x]"));
    EXPECT_EQ(caught.what, "outer [x]\ninner");
    EXPECT_THAT(caught.causes, testing::ElementsAre("inner"));
    EXPECT_THAT(caught.causeTypes, testing::ElementsAre("std::invalid_argument"));
}

TEST(CaughtError, NothingThrownMatchesNoText) {
    const tests::caught_error_t caught = CatchError([] {});
    EXPECT_FALSE(caught.thrown);
    EXPECT_THAT(caught, testing::Not(tests::ThrowsText("")));
}

TEST(CaughtError, AnotherTypeOrTextDoesNotMatch) {
    const tests::caught_error_t caught = CatchError([] { throw exc::CRuntimeExc("text"); });
    EXPECT_THAT(caught, testing::Not(tests::Throws("std::runtime_error", "text")));
    EXPECT_THAT(caught, testing::Not(tests::Throws("exc::CRuntimeExc", "other")));
}

TEST(CaughtError, ThrownNumberIsSeenAsSuch) {
    EXPECT_EQ(CatchError([] { throw 1; }).type, "not a std::exception");
}

}  // namespace
