#include "mirrowen/exc/exception.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <type_traits>

#include "mirrowen/exc/already_exists_exc.h"
#include "mirrowen/exc/not_impl_exc.h"
#include "mirrowen/exc/runtime_exc.h"
#include "tests/support/caught_error.h"

namespace {

using exc::CException;
using exc::CRuntimeExc;

template <class T>
constexpr bool kCopiesWithoutThrowing =
    std::is_nothrow_copy_constructible_v<T>&& std::is_nothrow_copy_assignable_v<T>&& std::is_base_of_v<CException, T>;

static_assert(kCopiesWithoutThrowing<CException>);
static_assert(kCopiesWithoutThrowing<CRuntimeExc>);
static_assert(kCopiesWithoutThrowing<exc::CNotImplExc>);
static_assert(kCopiesWithoutThrowing<exc::CAlreadyExistsExc>);
static_assert(!std::is_base_of_v<CRuntimeExc, exc::CAlreadyExistsExc>, "a handler of CRuntimeExc must not swallow it");
static_assert(!std::is_base_of_v<CRuntimeExc, exc::CNotImplExc>);

TEST(RuntimeExc, FillsNumberedPlaceholders) {
    EXPECT_STREQ(CRuntimeExc("a [%1] [%2].", "x", "y").what(), "a [x] [y].");
    EXPECT_STREQ(CRuntimeExc("%2 of %1", std::string("disk"), 7U).what(), "7 of disk");
}

TEST(RuntimeExc, TextAloneIsTakenAsItStands) {
    EXPECT_STREQ(CRuntimeExc("50%1 of [%2]").what(), "50%1 of [%2]");
}

TEST(NotImplExc, NamesClassAndOperation) {
    EXPECT_EQ(exc::CNotImplExc("tarn::some_t", "Open").Message(), "tarn::some_t::Open");
    EXPECT_EQ(exc::CNotImplExc("Open").Message(), "Open");
}

TEST(AlreadyExistsExc, KeepsItsText) {
    EXPECT_STREQ(exc::CAlreadyExistsExc("File [%1] exists").what(), "File [%1] exists");
}

TEST(Exception, WhatHoldsMessageAndEachCauseOnALine) {
    const auto innermost = std::make_exception_ptr(std::out_of_range("innermost"));
    const auto middle = std::make_exception_ptr(CRuntimeExc("middle", innermost));
    const CRuntimeExc outer("outer", middle);
    EXPECT_EQ(outer.Message(), "outer");
    EXPECT_STREQ(outer.what(), "outer\nmiddle\ninnermost");
    EXPECT_EQ(outer.Cause(), middle);
}

TEST(Exception, CauseThatIsNoStdExceptionIsNamedUnknown) {
    EXPECT_STREQ(CException("outer", std::make_exception_ptr(7)).what(), "outer\nunknown error");
}

TEST(Exception, CopySharesMessageAndCause) {
    const CRuntimeExc original("text", std::make_exception_ptr(std::runtime_error("cause")));
    CRuntimeExc copy("other");
    EXPECT_EQ(copy.Cause(), nullptr);
    copy = original;
    EXPECT_EQ(&copy.Message(), &original.Message());
    EXPECT_EQ(copy.Cause(), original.Cause());
    EXPECT_STREQ(copy.what(), original.what());
}

TEST(MessageOf, IsTheErrorsOwnText) {
    const auto cause = std::make_exception_ptr(std::runtime_error("cause"));
    EXPECT_EQ(exc::MessageOf(CRuntimeExc("own", cause)), "own");
    EXPECT_EQ(exc::MessageOf(std::runtime_error("plain")), "plain");
}

TEST(RootCause, IsTheInnermostError) {
    const auto innermost = std::make_exception_ptr(std::out_of_range("innermost"));
    const auto middle = std::make_exception_ptr(CRuntimeExc("middle", innermost));
    EXPECT_EQ(exc::RootCause(std::make_exception_ptr(CRuntimeExc("outer", middle))), innermost);
    EXPECT_EQ(exc::RootCause(innermost), innermost);
    EXPECT_EQ(exc::RootCause(nullptr), nullptr);
}

TEST(RootCause, GivesUpAfterSixtyFourSteps) {
    std::exception_ptr error = std::make_exception_ptr(std::runtime_error("bottom"));
    for (int i = 1; i <= 70; ++i) {
        error = std::make_exception_ptr(CRuntimeExc(std::to_string(i), error));
    }
    EXPECT_EQ(tests::DescribeError(exc::RootCause(error)).message, "6");
}

}  // namespace
