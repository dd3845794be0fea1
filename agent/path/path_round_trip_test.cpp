#include <gtest/gtest.h>

#include <limits>
#include <random>
#include <string>

#include "agent/path/describe_path.h"
#include "agent/path/location.h"
#include "tarn/flr/flr_context.h"
#include "tarn/memfs/memfs_path.h"
#include "tarn/tdatafs/tdatafs_path.h"

/// Whatever a form can hold comes back from its text. (Extent paths have theirs beside their parser.)
namespace agent {
namespace {

class PathRoundTrip : public testing::Test {
  protected:
    // Text of characters that mean something to one form or another, and of bytes that are no text.
    std::string Text(const std::string& without = "") {
        static const std::string alphabet("/:|\\.[]=,% a\xFF\n\0", 16);
        std::string text;
        for (std::size_t length = engine_() % 12; length > 0; --length) {
            const char c = alphabet[engine_() % alphabet.size()];
            text += without.find(c) == std::string::npos ? std::string(1, c) : "x";
        }
        return text;
    }
    std::uint64_t Number() {
        const std::uint64_t edges[] = {0, 1, 9, 10, std::numeric_limits<std::uint64_t>::max() - 1, engine_()};
        return edges[engine_() % 6];
    }

    const unsigned seed_ = std::random_device{}();
    std::mt19937_64 engine_{seed_};
    const testing::ScopedTrace trace_{__FILE__, __LINE__, "seed " + std::to_string(seed_)};
};

constexpr int kRuns = 2000;

TEST_F(PathRoundTrip, MemorySlot) {
    for (int run = 0; run < kRuns; ++run) {
        tarn::memfs::memfs_path_t path;
        path.SetSlotName(Text());
        ASSERT_EQ(tarn::memfs::memfs_path_t(path.ToString()).GetSlotName(), path.GetSlotName());
        ASSERT_EQ(DescribePath(path.ToString()).fields.front().second, path.GetSlotName());
    }
}

TEST_F(PathRoundTrip, TapeData) {
    using tarn::tdatafs::tdatafs_path_t;
    for (int run = 0; run < kRuns; ++run) {
        const tdatafs_path_t path(Text("|"), Number(), engine_() % 4 == 0 ? tdatafs_path_t::kAbsent : Number());
        const tdatafs_path_t back(path.ToString());
        ASSERT_EQ(back.GetName(), path.GetName());
        ASSERT_EQ(back.GetFirst(), path.GetFirst());
        ASSERT_EQ(back.GetSecond(), path.GetSecond());
    }
}

TEST_F(PathRoundTrip, LocationBelowAnAgent) {
    for (int run = 0; run < kRuns; ++run) {
        location_t location;
        location.isRemote = true;
        location.endpoint = {engine_() % 2 == 0 ? "::1" : "host.name",
                             static_cast<std::uint16_t>(1 + engine_() % 65535)};
        location.path = Text("/");  // slashes at its ends are not part of it
        ASSERT_EQ(ParseLocation(ToString(location)), location);
    }
}

TEST_F(PathRoundTrip, NameInAView) {
    tarn::CFLRContext rules;
    rules.AddMappingRule("/real", "/mount");
    for (int run = 0; run < kRuns; ++run) {
        const std::string name = "n" + Text("/");
        std::string real;
        ASSERT_TRUE(rules.TryMapPath("/mount/" + name, real));
        ASSERT_EQ(real, "/real/" + name);
        ASSERT_EQ(DescribePath("FlrFS:///mount/" + name).fields.front().second, "/mount/" + name);
    }
}

}  // namespace
}  // namespace agent
