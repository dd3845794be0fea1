#include "mirrowen/pool/byte_budget.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <optional>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "tests/support/caught_error.h"
#include "tests/support/fake_clock.h"

namespace {

using pool::byte_budget_t;
using pool::byte_lease_t;
using std::chrono::milliseconds;
using synch::deadline_t;

static_assert(!std::is_copy_constructible_v<byte_lease_t> && std::is_nothrow_move_constructible_v<byte_lease_t>);

synch::wait_limits_t at_once() {
    return {deadline_t::After(milliseconds(0)), {}};
}

synch::wait_limits_t within_reason() {
    return {deadline_t::After(std::chrono::minutes(2)), {}};
}

TEST(ByteBudget, CountsLeasesAndTheirEnd) {
    byte_budget_t budget(100);
    byte_lease_t first = budget.Acquire(60, at_once());
    EXPECT_EQ(first.Size(), 60U);
    {
        const byte_lease_t second = budget.Acquire(40, at_once());
        EXPECT_EQ(budget.InUse(), 100U);
    }
    EXPECT_EQ(budget.InUse(), 60U);
    first.reset();
    first.reset();
    EXPECT_EQ(first.Size(), 0U);
    EXPECT_EQ(budget.InUse(), 0U);
}

TEST(ByteBudget, MovedLeaseIsGivenBackOnce) {
    byte_budget_t budget(100);
    byte_lease_t first = budget.Acquire(60, at_once());
    byte_lease_t second(std::move(first));
    byte_lease_t third = budget.Acquire(10, at_once());
    third = std::move(second);
    EXPECT_EQ(budget.InUse(), 60U);
    EXPECT_EQ(third.Size(), 60U);
    third.reset();
    EXPECT_EQ(budget.InUse(), 0U);
}

TEST(ByteBudget, FullBudgetTimesOut) {
    byte_budget_t budget(100);
    const byte_lease_t held = budget.Acquire(100, at_once());
    EXPECT_THAT(tests::CatchError([&] { budget.Acquire(1, at_once()); }),
                tests::Throws("exc::CRuntimeExc", "Timed out waiting for buffer memory."));
    EXPECT_EQ(budget.InUse(), 100U);
}

TEST(ByteBudget, DeadlineIsTheInjectedClocks) {
    tests::fake_clock_t clock;
    byte_budget_t budget(1);
    const byte_lease_t held = budget.Acquire(1, {});
    const synch::wait_limits_t limits{deadline_t::After(std::chrono::hours(1)), {}};
    tests::caught_error_t caught;
    std::jthread waiter([&] { caught = tests::CatchError([&] { budget.Acquire(1, limits); }); });
    clock.Advance(std::chrono::hours(1));
    waiter.join();
    EXPECT_THAT(caught, tests::ThrowsText("Timed out waiting for buffer memory."));
}

TEST(ByteBudget, StopRequestEndsTheWait) {
    byte_budget_t budget(1);
    const byte_lease_t held = budget.Acquire(1, at_once());
    tests::caught_error_t caught;
    std::jthread waiter([&](std::stop_token stop) {
        caught = tests::CatchError([&] { budget.Acquire(1, {deadline_t::Never(), std::move(stop)}); });
    });
    waiter.request_stop();
    waiter.join();
    EXPECT_THAT(caught, tests::Throws("exc::CRuntimeExc", "Waiting for buffer memory was cancelled."));
}

TEST(ByteBudget, ReleaseOnAnotherThreadWakesTheWaiter) {
    byte_budget_t budget(100);
    std::optional<byte_lease_t> held = budget.Acquire(100, at_once());
    std::jthread releaser([&] { held.reset(); });
    const byte_lease_t lease = budget.Acquire(80, within_reason());
    releaser.join();
    EXPECT_EQ(budget.InUse(), 80U);
}

TEST(ByteBudget, FirstBufferIsGrantedOverTheLimit) {
    byte_budget_t budget(10);
    const byte_lease_t held = budget.Acquire(10, at_once());
    byte_lease_t first = budget.AcquireFirst(1000);
    EXPECT_EQ(budget.InUse(), 1010U);
    EXPECT_THAT(tests::CatchError([&] { budget.Acquire(0, at_once()); }),
                tests::ThrowsText("Timed out waiting for buffer memory."));
    first.reset();
    EXPECT_NO_THROW(budget.Acquire(0, at_once()));
}

TEST(ByteBudget, RequestLargerThanAnyRoomDoesNotWrapAround) {
    byte_budget_t budget(100);
    const byte_lease_t held = budget.Acquire(50, at_once());
    EXPECT_TRUE(tests::CatchError([&] { budget.Acquire(SIZE_MAX, at_once()); }).thrown);
}

TEST(ByteBudget, RaisedLimitLetsTheWaiterIn) {
    byte_budget_t budget(0);
    std::jthread raiser([&] { budget.SetLimit(5); });
    EXPECT_EQ(budget.Acquire(5, within_reason()).Size(), 5U);
}

TEST(ByteBudget, LeaseMayOutliveItsBudget) {
    byte_lease_t lease;
    {
        byte_budget_t budget(10);
        lease = budget.Acquire(10, at_once());
    }
    EXPECT_EQ(lease.Size(), 10U);
}

TEST(ByteBudget, ManyThreadsNeverExceedTheLimit) {
    byte_budget_t budget(100);
    std::atomic<bool> exceeded{false};
    {
        std::vector<std::jthread> threads;
        for (std::size_t thread = 1; thread <= 6; ++thread) {
            threads.emplace_back([&, thread] {
                for (int turn = 0; turn < 200; ++turn) {
                    const byte_lease_t lease = budget.Acquire(10 * thread, within_reason());
                    exceeded = exceeded || budget.InUse() > 100;
                }
            });
        }
    }
    EXPECT_FALSE(exceeded);
    EXPECT_EQ(budget.InUse(), 0U);
}

TEST(ByteBudget, ProcessHasOneOfSixtyFourMebibytes) {
    EXPECT_EQ(&byte_budget_t::Process(), &byte_budget_t::Process());
    EXPECT_EQ(pool::kDefaultProcessBudget, 67108864U);
    const byte_lease_t all = byte_budget_t::Process().Acquire(67108864, at_once());
    EXPECT_TRUE(tests::CatchError([&] { byte_budget_t::Process().Acquire(1, at_once()); }).thrown);
}

}  // namespace
