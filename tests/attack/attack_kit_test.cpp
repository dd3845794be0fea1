#include "tests/attack/attack_kit.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <filesystem>
#include <functional>

#include <gmock/gmock.h>

#include "tests/attack/flipper.h"
#include "tests/support/raw_peer.h"

namespace tests {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

/// The instruments themselves: each must notice what it is there for.
class AttackKit : public attack_fixture_t {};

TEST_F(AttackKit, UntouchedCanaryHasNoDamageHoweverOftenItIsLookedAt) {
    for (int look = 0; look < 3; ++look) {
        EXPECT_EQ(Canary().Damage(), "");
    }
}

TEST_F(AttackKit, EveryKindOfDamageIsNoticedAndNamed) {
    struct damage_t {
        std::string object;
        std::function<int(const std::string&)> cause;
    };
    const timespec other[2] = {{.tv_sec = 1, .tv_nsec = 2}, {.tv_sec = 3, .tv_nsec = 4}};
    const std::vector<damage_t> damages = {
        {"canary/secret", [](const std::string& path) { return ::chmod(path.c_str(), 0600); }},
        {"canary/dir/inner", [](const std::string& path) { return ::truncate(path.c_str(), 3); }},
        {"canary/dir", [](const std::string& path) { return ::chmod(path.c_str(), 0700); }},
        {"canary/link",
         [&](const std::string& path) { return ::utimensat(AT_FDCWD, path.c_str(), other, AT_SYMLINK_NOFOLLOW); }},
        {"canary/dir/file", [](const std::string& path) { return ::setxattr(path.c_str(), "user.b", "v", 1, 0); }},
        {"canary/secret", [](const std::string& path) { return ::link(path.c_str(), (path + "2").c_str()); }},
        {"canary/empty", [](const std::string& path) { return ::rmdir(path.c_str()); }},
        {"canary/empty", [](const std::string& path) { return ::mkdir(path.c_str(), 0700); }},
        {"canary/new", [](const std::string& path) { return ::mkdir(path.c_str(), 0700); }},
    };
    for (const damage_t& damage : damages) {
        SCOPED_TRACE(damage.object);
        ASSERT_EQ(damage.cause(Place(damage.object)), 0);
        EXPECT_THAT(Canary().Damage(), HasSubstr(damage.object + " "));
        Canary().Remember();
        EXPECT_EQ(Canary().Damage(), "");
    }
}

TEST_F(AttackKit, ReadingTheCanaryIsNoticedWhereTheFileSystemNotesIt) {
    if (!Canary().NoticesReading()) {
        GTEST_SKIP() << "the file system of the temporary directory notes no times of access";
    }
    EXPECT_EQ(ReadFile(Canary() / "secret"), Canary().Secret());
    EXPECT_THAT(Canary().Damage(), HasSubstr("canary/secret is: "));
    Canary().Remember();
    EXPECT_FALSE(fs::is_empty(Canary() / "dir"));
    EXPECT_THAT(Canary().Damage(), HasSubstr("canary/dir is: "));
}

TEST_F(AttackKit, SecretIsFoundWhereverItHasGone) {
    EXPECT_EQ(Canary().Leaks(Root()), "");
    MakeLink(Root("link"), Canary() / "secret");
    EXPECT_EQ(Canary().Leaks(Root()), "");
    MakeDirectory(Root("d"));
    MakeFile(Root("d/f"), "before " + Canary().Secret() + " behind");
    EXPECT_EQ(Canary().Leaks(Root()), Root("d/f") + "\n");
}

TEST_F(AttackKit, FlipperChangesPlacesAllTheTimeAndLeavesThemAsTheyWere) {
    MakeDirectory(Root("a"));
    MakeFile(Root("a/inside"), "x");
    MakeLink(Root("b"), Canary().Path());
    std::uint64_t asLink = 0;
    std::uint64_t asDirectory = 0;
    std::uint64_t flips = 0;
    {
        const flipper_t flipper(Root(), "a", "b");
        const auto end = std::chrono::steady_clock::now() + kPatience;
        while ((asLink < 10 || asDirectory < 10 || flipper.Flips() < 10) && std::chrono::steady_clock::now() < end) {
            ++(fs::is_symlink(Root("a")) ? asLink : asDirectory);
        }
        flips = flipper.Flips();
    }
    EXPECT_GE(asLink, 10U);
    EXPECT_GE(asDirectory, 10U);
    EXPECT_GE(flips, 10U);
    EXPECT_TRUE(fs::is_directory(fs::symlink_status(Root("a"))));
    EXPECT_TRUE(fs::is_symlink(Root("b")));
    EXPECT_THROW(flipper_t(Root(), "a", "missing"), std::runtime_error);
}

}  // namespace
}  // namespace tests
