#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "tarn/memfs/memfs_mem_slots.h"
#include "tests/edge/edge_kit.h"
#include "tests/support/as_nobody.h"
#include "tests/support/awkward_tree.h"
#include "tests/support/own_file_system.h"
#include "tests/support/tree_compare.h"

namespace tests {
namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

/// A tree of awkward things and one place to which it is brought.
class AwkwardRoads : public edge_fixture_t {
  protected:
    AwkwardRoads() { options_.recursive = true; }

    std::string Tree() const { return Source("tree"); }

    void Bring(const std::string& source, const std::string& destination, const std::string& arrived) const {
        Bring(source, destination, source, arrived);
    }

    /// Copies a tree and compares the two places. What is skipped, warned of or failed is a failure.
    void Bring(const std::string& source, const std::string& destination, const std::string& tree,
               const std::string& arrived) const {
        SCOPED_TRACE(destination);
        const copy_outcome_t outcome = CopyAll({source}, destination, options_);
        EXPECT_EQ(outcome.Failure(), "");
        EXPECT_EQ(Notes(outcome.report.skipped), "");
        for (const auto& note : outcome.report.warnings) {
            EXPECT_THAT(note.text, HasSubstr(mayLack_.empty() ? "no warning at all" : "[" + mayLack_ + "]"));
        }
        EXPECT_THAT(CompareTrees(tree, arrived, same_), IsEmpty());
    }

    void BringThroughAnAgent() {
        MakeAwkwardTree(Tree(), parts_);
        ExpectNoTrustedAttributes();
        serve_child_t server(TARN_COMMAND, Root());
        Bring(Tree(), Remote(server.Port(), "tree"), Root() + "/tree");
        EXPECT_EQ(server.WaitSession(), "ended");
        EXPECT_THAT(server.Errors(), Not(HasSubstr("tree")));
    }

    static std::string Notes(const std::vector<agent::copy::copy_note_t>& notes) {
        std::string text;
        for (const auto& note : notes) {
            text += note.path + ": " + note.text + "\n";
        }
        return text;
    }

    awkward_parts_t parts_;
    /// The road is by way of an agent, which the kernel confines. It gave up the privilege that trusted attributes
    /// need, even as root, and warns of them.
    void ExpectNoTrustedAttributes() {
        mayLack_ = "trusted.kept";
        same_.ignoredAttributes = {mayLack_};
    }

    tree_compare_t same_;
    std::string mayLack_;
    agent::copy::copy_options_t options_;
};

TEST_F(AwkwardRoads, FromPlaceToPlace) {
    MakeAwkwardTree(Tree(), parts_);
    Bring(Tree(), Place("there"), Place("there"));
}

TEST_F(AwkwardRoads, ThroughAnAgentInBatches) {
    BringThroughAnAgent();
}

TEST_F(AwkwardRoads, ThroughAnAgentItemByItem) {
    options_.batchLimit = 0;
    BringThroughAnAgent();
}

TEST_F(AwkwardRoads, BackFromAnAgent) {
    MakeAwkwardTree(Root() + "/tree", parts_);
    ExpectNoTrustedAttributes();
    const serve_child_t server(TARN_COMMAND, Root());
    Bring(Remote(server.Port(), "tree"), Place("back"), Root() + "/tree", Place("back"));
    EXPECT_THAT(server.Errors(), Not(HasSubstr("tree")));
}

TEST_F(AwkwardRoads, FromPlaceToPlaceAsAnOrdinaryUser) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root becomes another user";
    }
    ASSERT_EQ(::chmod(Place("").c_str(), 0777), 0);
    ASSERT_EQ(::chmod(Place("source").c_str(), 0777), 0);
    EXPECT_EQ(RunAsNobody([&] {
                  MakeAwkwardTree(Tree(), parts_);
                  Bring(Tree(), Place("there"), Place("there"));
                  return std::string(HasFailure() ? "failed" : "arrived");
              }),
              "arrived");
}

TEST_F(AwkwardRoads, WithLargeAttributesOnXfs) {
    const own_file_system_t xfs("xfs");
    if (!xfs.WhyNot().empty()) {
        GTEST_SKIP() << xfs.WhyNot();
    }
    parts_.attributeBytes = 65'536;
    MakeAwkwardTree(xfs.path() + "/tree", parts_);
    Bring(xfs.path() + "/tree", xfs.path() + "/local", xfs.path() + "/local");
    ExpectNoTrustedAttributes();
    const serve_child_t server(TARN_COMMAND, xfs.path());
    Bring(xfs.path() + "/tree", Remote(server.Port(), "remote"), xfs.path() + "/remote");
    std::filesystem::create_directory(xfs.path() + "/here");
    Bring(Remote(server.Port(), "tree"), xfs.path() + "/here/back", xfs.path() + "/tree", xfs.path() + "/here/back");
}

TEST_F(AwkwardRoads, EachContentThroughMemory) {
    parts_.allModes = false;
    parts_.hugeFile = false;
    MakeAwkwardTree(Tree(), parts_);
    options_.recursive = false;
    options_.overwrite = true;
    std::size_t files = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(Tree())) {
        if (!entry.is_symlink() && entry.is_regular_file()) {
            const std::string path = entry.path().string();
            EXPECT_EQ(CopyAll({path}, "MemFs://awkward", options_).Failure(), "");
            EXPECT_EQ(CopyAll({"MemFs://awkward"}, Place("back"), options_).Failure(), "");
            EXPECT_EQ(ReadFile(Place("back")), ReadFile(path)) << path;
            ++files;
        }
    }
    EXPECT_GT(files, 100U);
    tarn::memfs::memfs_mem_slots_t::Inst().DeleteSlot("awkward");
}

}  // namespace
}  // namespace tests
