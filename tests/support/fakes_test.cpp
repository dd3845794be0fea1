#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <string>
#include <thread>

#include "tests/support/fake_clock.h"
#include "tests/support/fake_random.h"
#include "tests/support/temp_dir.h"

namespace {

using std::chrono::milliseconds;

TEST(FakeClock, MovesOnlyWhenToldOrAskedToSleep) {
    tests::fake_clock_t fake;
    const auto start = util::clock().SteadyNow();
    const auto wallStart = util::clock().SystemNow();
    EXPECT_EQ(util::clock().SteadyNow(), start);
    util::sleep(10000);
    fake.Advance(milliseconds(1));
    EXPECT_EQ(util::clock().SteadyNow() - start, milliseconds(10001));
    EXPECT_EQ(util::clock().SystemNow() - wallStart, milliseconds(10001));
    EXPECT_THAT(fake.Sleeps(), testing::ElementsAre(milliseconds(10000)));
}

TEST(FakeClock, StoppedSleepDoesNotMoveTheTime) {
    tests::fake_clock_t fake;
    std::stop_source stop;
    stop.request_stop();
    const auto start = fake.SteadyNow();
    util::clock().SleepFor(milliseconds(5), stop.get_token());
    EXPECT_EQ(fake.SteadyNow(), start);
    EXPECT_EQ(fake.Sleeps().size(), 1U);
}

TEST(FakeClock, ThreadThatLooksAgainAndAgainIsWaiting) {
    const tests::fake_clock_t fake;
    const std::jthread waiting([](const std::stop_token& stop) {
        while (!stop.stop_requested()) {
            util::clock().SteadyNow();
            std::this_thread::yield();
        }
    });
    fake.WaitForWaiting(0);
    fake.WaitForWaiting(1);
}

TEST(FakeClock, RealClockReturnsAtTheEnd) {
    const util::IClock* const real = &util::clock();
    {
        const tests::fake_clock_t fake;
        EXPECT_NE(&util::clock(), real);
    }
    EXPECT_EQ(&util::clock(), real);
}

TEST(FakeClock, CanBeLookedAtAfterItsEndAndTheNextBeginsAnew) {
    const util::IClock* held = nullptr;
    util::IClock::steady_point_t start;
    {
        tests::fake_clock_t fake;
        held = &util::clock();
        start = held->SteadyNow();
        util::sleep(5);
    }
    EXPECT_EQ(held->SteadyNow() - start, milliseconds(5));
    const tests::fake_clock_t next;
    EXPECT_EQ(next.SteadyNow(), start);
    EXPECT_TRUE(next.Sleeps().empty());
}

std::array<std::byte, 16> draw(std::uint64_t seed) {
    tests::fake_random_t fake(seed);
    std::array<std::byte, 16> bytes = {};
    util::random().Fill(bytes);
    return bytes;
}

TEST(FakeRandom, EqualSeedsGiveEqualBytes) {
    EXPECT_EQ(draw(7), draw(7));
    EXPECT_NE(draw(7), draw(8));
}

TEST(TempDir, IsRemovedWithItsContents) {
    std::string path;
    {
        const tests::temp_dir_t dir;
        path = dir.path();
        std::filesystem::create_directory(dir / "sub");
        tests::WriteFile(dir / "sub/file", "content");
        EXPECT_EQ(tests::ReadFile(dir / "sub/file"), "content");
    }
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST(TempDir, MissingFileIsNotReadAsEmpty) {
    const tests::temp_dir_t dir;
    EXPECT_THROW(tests::ReadFile(dir / "none"), std::runtime_error);
}

}  // namespace
