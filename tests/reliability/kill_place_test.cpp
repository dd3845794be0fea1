#include "tests/reliability/kill_place.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>

namespace tests {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

/// The kill rounds are worth as much as what they would notice.
class KillPlace : public testing::Test {
  protected:
    KillPlace() { place_.StartOver(); }

    std::string Target(const std::string& name) const { return place_.Root() + "/" + name; }
    std::vector<std::string> Faults(const std::string& what = "tree") const { return place_.Look(what).faults; }

    kill_place_t place_{EPlace::eMemory};
};

TEST_F(KillPlace, OldTargetsAreGood) {
    EXPECT_THAT(Faults(), IsEmpty());
    EXPECT_THAT(Faults("large"), IsEmpty());
    EXPECT_EQ(place_.Look("large").old, 1U);
    EXPECT_THAT(place_.Missing("large"), testing::Not(IsEmpty()));
}

TEST_F(KillPlace, NewTargetsAreGood) {
    fs::remove(Target("large"));
    ASSERT_EQ(std::system(("cp -a '" + place_.Source("large") + "' '" + Target("large") + "'").c_str()), 0);
    EXPECT_EQ(place_.Look("large").fresh, 1U);
    EXPECT_THAT(place_.Missing("large"), IsEmpty());
}

TEST_F(KillPlace, HalfOfAFileIsSeen) {
    fs::resize_file(Target("large"), 1000);
    EXPECT_THAT(Faults("large"), ElementsAre(HasSubstr("large: neither old nor new: ")));
}

TEST_F(KillPlace, NewModeOnOldContentIsSeen) {
    ASSERT_EQ(::chmod(Target("tree/longer").c_str(), 0640), 0);
    EXPECT_THAT(Faults(), ElementsAre(HasSubstr("tree/longer: neither old nor new: ")));
}

TEST_F(KillPlace, MissingOldTargetIsSeen) {
    fs::remove(Target("tree/link"));
    EXPECT_THAT(Faults(), ElementsAre("tree/link: gone"));
}

TEST_F(KillPlace, TemporaryFilesAreSeen) {
    EXPECT_THAT(place_.LeftTemporary(), IsEmpty());
    fs::create_directory(place_.Temporary() + "/folder");
    EXPECT_THAT(place_.LeftTemporary(), ElementsAre("folder"));
}

TEST_F(KillPlace, StrangeNameIsSeen) {
    fs::create_symlink("x", Target("tree/sub/.replaced.tmp"));
    EXPECT_THAT(Faults(), ElementsAre("tree/sub/.replaced.tmp"));
}

TEST_F(KillPlace, ChangeBesideTheTargetsIsSeen) {
    ASSERT_EQ(::chmod(Target("untouched").c_str(), 0755), 0);
    EXPECT_THAT(Faults(), ElementsAre(HasSubstr("mode ")));
}

TEST_F(KillPlace, OpenedDirectoryIsSeen) {
    ASSERT_EQ(::chmod(Target("tree/sub").c_str(), 0777), 0);
    EXPECT_THAT(Faults(), ElementsAre(HasSubstr("tree/sub: neither old nor new: ")));
}

TEST_F(KillPlace, StagedFilesAreSeenAndKeptPartsCounted) {
    fs::create_directories(Target(".tarn-staging/partial"));
    fs::create_directories(Target(".tarn-staging/run"));
    for (const char* const name : {"lock", "journal", "partial/key", "run/staged"}) {
        WriteFile(Target(".tarn-staging/") + name, "");
    }
    EXPECT_THAT(place_.Staged(), ElementsAre("run/staged"));
    EXPECT_EQ(place_.CountKept(), 1U);
    EXPECT_THAT(Faults(), IsEmpty());
}

}  // namespace
}  // namespace tests
