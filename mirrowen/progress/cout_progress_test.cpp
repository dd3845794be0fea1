#include "mirrowen/progress/cout_progress.h"

#include <stdexcept>

namespace progress {

namespace {

struct console_t final : io::IInOut {
    void Print(std::string_view text) override {
        if (broken) {
            throw std::runtime_error("gone");
        }
        printed += text;
    }
    std::string printed;
    bool broken = false;
};

TEST(CoutProgressTest, PrintsEachWholePercentOnce) {
    console_t console;
    cout_progress_t progress(200, false, console);
    progress.OnProgress(0);
    progress.OnProgress(1);
    progress.OnProgress(1);
    progress.OnProgress(1);
    progress.OnProgress(197);
    EXPECT_EQ(console.printed, "\r0%\r1%\r100%");
}

TEST(CoutProgressTest, MoreThanExpectedStaysAtAHundred) {
    console_t console;
    cout_progress_t progress(10, false, console);
    progress.OnProgress(10);
    progress.OnProgress(10);
    EXPECT_EQ(console.printed, "\r100%");
}

TEST(CoutProgressTest, UnknownSizeCountsBytes) {
    console_t console;
    cout_progress_t progress(0, false, console);
    progress.OnProgress(5);
    progress.OnProgress(0);
    progress.OnProgress(6);
    EXPECT_EQ(console.printed, "\r5 bytes\r11 bytes");
}

TEST(CoutProgressTest, GiantSizesDoNotOverflow) {
    console_t console;
    constexpr std::uint64_t kMost = std::numeric_limits<std::uint64_t>::max();
    cout_progress_t progress(kMost, false, console);
    progress.OnProgress(kMost / 2);
    progress.OnProgress(kMost / 2);
    progress.OnProgress(kMost);
    EXPECT_EQ(console.printed, "\r50%\r99%");
}

TEST(CoutProgressTest, EndsTheLineItBegan) {
    console_t console;
    { cout_progress_t progress(10, true, console); }
    EXPECT_EQ(console.printed, "");
    {
        cout_progress_t progress(10, true, console);
        progress.OnProgress(10);
    }
    EXPECT_EQ(console.printed, "\r100%\n");
}

TEST(CoutProgressTest, AConsoleThatFailsAtTheEndIsIgnored) {
    console_t console;
    {
        cout_progress_t progress(10, true, console);
        progress.OnProgress(1);
        console.broken = true;
    }
    EXPECT_EQ(console.printed, "\r10%");
}

}  // namespace

}  // namespace progress
