#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <numeric>
#include <string>
#include <thread>
#include <vector>

#include "mirrowen/util/clock.h"
#include "mirrowen/util/crc32c.h"
#include "mirrowen/util/random.h"
#include "tests/support/fake_clock.h"

namespace {

using std::chrono::milliseconds;

TEST(Crc32c, PublishedValues) {
    std::vector<unsigned char> bytes(32, 0);
    EXPECT_EQ(util::crc32c(0, bytes.data(), bytes.size()), 0x8A9136AAU);
    bytes.assign(32, 0xFF);
    EXPECT_EQ(util::crc32c(0, bytes.data(), bytes.size()), 0x62A8AB43U);
    std::iota(bytes.begin(), bytes.end(), static_cast<unsigned char>(0));
    EXPECT_EQ(util::crc32c(0, bytes.data(), bytes.size()), 0x46DD794EU);
    EXPECT_EQ(util::crc32c(0, "123456789", 9), 0xE3069283U);
}

TEST(Crc32c, EmptyInputReturnsTheSeed) {
    EXPECT_EQ(util::crc32c(0, nullptr, 0), 0U);
    EXPECT_EQ(util::crc32c(0x12345678, "", 0), 0x12345678U);
}

TEST(Crc32c, ContinuesFromAnEarlierResult) {
    const std::string text(1000, 'x');
    for (const std::size_t cut : {0U, 1U, 7U, 512U, 1000U}) {
        const std::uint32_t first = util::crc32c(0, text.data(), cut);
        EXPECT_EQ(util::crc32c(first, text.data() + cut, text.size() - cut), util::crc32c(0, text.data(), 1000));
    }
}

TEST(Random, FillsEveryLength) {
    std::array<std::byte, 1024> first = {};
    std::array<std::byte, 1024> second = {};
    util::random().Fill(first);
    util::random().Fill(second);
    EXPECT_NE(first, second);
    EXPECT_NE(first, (std::array<std::byte, 1024>{}));
    util::random().Fill({});
}

class sevens_random_t : public util::IRandom {
  public:
    void Fill(std::span<std::byte> out) override { std::fill(out.begin(), out.end(), std::byte{0x57}); }
};

TEST(Random, IsReplacedForAScope) {
    sevens_random_t replacement;
    const util::IRandom* const real = &util::random();
    {
        const util::scoped_random_t scope(replacement);
        std::array<std::byte, 2> bytes = {};
        util::random().Fill(bytes);
        EXPECT_EQ(bytes[1], std::byte{0x57});
    }
    EXPECT_EQ(&util::random(), real);
}

TEST(Clock, SleepLastsAtLeastItsTime) {
    const auto start = util::clock().SteadyNow();
    util::sleep(2);
    EXPECT_GE(util::clock().SteadyNow() - start, milliseconds(2));
}

TEST(Clock, StopRequestEndsTheSleep) {
    const auto start = std::chrono::steady_clock::now();
    std::jthread sleeper([](std::stop_token stop) { util::clock().SleepFor(std::chrono::minutes(10), stop); });
    sleeper.request_stop();
    sleeper.join();
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::minutes(1));
}

TEST(Clock, WallClockIsTheSystems) {
    const auto before = std::chrono::system_clock::now();
    const auto now = util::clock().SystemNow();
    EXPECT_LE(before, now);
    EXPECT_LE(now, std::chrono::system_clock::now());
}

TEST(Sleep, NothingIsSleptForZeroAndLess) {
    const tests::fake_clock_t clock;
    util::sleep(0);
    util::sleep(-1);
    EXPECT_TRUE(clock.Sleeps().empty());
    util::sleep(3);
    EXPECT_THAT(clock.Sleeps(), testing::ElementsAre(milliseconds(3)));
}

}  // namespace
