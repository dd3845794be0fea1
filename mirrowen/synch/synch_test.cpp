#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <stdexcept>
#include <thread>
#include <vector>

#include "mirrowen/exc/already_exists_exc.h"
#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/synch/completion_port.h"
#include "mirrowen/synch/deadline.h"
#include "tests/support/caught_error.h"
#include "tests/support/fake_clock.h"

namespace {

using std::chrono::milliseconds;
using synch::deadline_t;

TEST(Deadline, ExpiresAtItsMoment) {
    tests::fake_clock_t clock;
    const deadline_t deadline = deadline_t::After(milliseconds(100));
    EXPECT_FALSE(deadline.IsExpired());
    clock.Advance(milliseconds(99));
    EXPECT_FALSE(deadline.IsExpired());
    clock.Advance(milliseconds(1));
    EXPECT_TRUE(deadline.IsExpired());
}

TEST(Deadline, ZeroAndNegativeDurationsAreExpiredAtOnce) {
    const tests::fake_clock_t clock;
    EXPECT_TRUE(deadline_t::After(milliseconds(0)).IsExpired());
    EXPECT_TRUE(deadline_t::After(milliseconds(-5)).IsExpired());
    EXPECT_EQ(deadline_t::After(milliseconds(-5)).NextSlice(), milliseconds(0));
}

TEST(Deadline, SlicesAreCutFromTheTimeLeft) {
    tests::fake_clock_t clock;
    const deadline_t deadline = deadline_t::After(milliseconds(50));
    EXPECT_EQ(deadline.NextSlice(), util::kWaitSlice);
    clock.Advance(milliseconds(45));
    EXPECT_EQ(deadline.NextSlice(), milliseconds(5));
    clock.Advance(std::chrono::microseconds(4500));
    EXPECT_EQ(deadline.NextSlice(), milliseconds(1)) << "a remaining fraction is rounded up";
    clock.Advance(milliseconds(10));
    EXPECT_EQ(deadline.NextSlice(), milliseconds(0));
}

TEST(Deadline, NeverDoesNotExpire) {
    tests::fake_clock_t clock;
    const deadline_t deadline = deadline_t::After(milliseconds::max());
    clock.Advance(std::chrono::hours(24 * 365 * 50));
    EXPECT_FALSE(deadline.IsExpired());
    EXPECT_FALSE(deadline_t::Never().IsExpired());
    EXPECT_EQ(deadline_t::Never().NextSlice(), util::kWaitSlice);
}

TEST(Deadline, EarlierOfTwo) {
    tests::fake_clock_t clock;
    const deadline_t soon = deadline_t::After(milliseconds(10));
    const deadline_t late = deadline_t::After(milliseconds(1000));
    const deadline_t all[] = {soon.Earlier(late), late.Earlier(soon), soon.Earlier(deadline_t::Never()),
                              deadline_t::Never().Earlier(soon)};
    clock.Advance(milliseconds(10));
    for (const deadline_t& deadline : all) {
        EXPECT_TRUE(deadline.IsExpired());
    }
    EXPECT_FALSE(deadline_t::Never().Earlier(deadline_t::Never()).IsExpired());
}

TEST(CompletionPort, PassesWhileNothingHasFailed) {
    synch::completion_port_t port;
    EXPECT_NO_THROW(port.CheckForErrorsExc());
    port.PostError(nullptr);
    EXPECT_NO_THROW(port.CheckForErrorsExc());
}

TEST(CompletionPort, ThrowsTheFirstFailureUnchangedEachTime) {
    synch::completion_port_t port;
    port.PostError(std::make_exception_ptr(exc::CAlreadyExistsExc("first")));
    port.PostError(std::make_exception_ptr(std::runtime_error("second")));
    for (int i = 0; i < 2; ++i) {
        EXPECT_THAT(tests::CatchError([&] { port.CheckForErrorsExc(); }),
                    tests::Throws("exc::CAlreadyExistsExc", "first"));
    }
}

TEST(CompletionPort, TakesFailuresFromManyThreads) {
    synch::completion_port_t port;
    {
        std::vector<std::jthread> threads;
        for (int i = 0; i < 8; ++i) {
            threads.emplace_back([&] { port.PostError(std::make_exception_ptr(exc::CRuntimeExc("one of many"))); });
        }
    }
    EXPECT_THAT(tests::CatchError([&] { port.CheckForErrorsExc(); }), tests::ThrowsText("one of many"));
}

// A function of its own: within one, clang's analysis takes the second lock for a mistake.
bool AnotherThreadTakesWhileThisOneHolds(synch::recursive_mutex_t& mutex) {
    const synch::recursive_lock_t inner(mutex);
    bool taken = true;
    std::jthread([&] { taken = mutex.try_lock(); }).join();
    return taken;
}

TEST(Mutex, RecursiveOneIsTakenTwiceByItsThread) {
    synch::recursive_mutex_t mutex;
    const synch::recursive_lock_t outer(mutex);
    EXPECT_FALSE(AnotherThreadTakesWhileThisOneHolds(mutex));
}

TEST(Mutex, KeepsThreadsApart) {
    synch::mutex_t mutex;
    int count = 0;
    {
        std::vector<std::jthread> threads;
        for (int i = 0; i < 4; ++i) {
            threads.emplace_back([&] {
                for (int turn = 0; turn < 1000; ++turn) {
                    const synch::lock_t lock(mutex);
                    ++count;
                }
            });
        }
    }
    EXPECT_EQ(count, 4000);
}

}  // namespace
