#include <algorithm>
#include <filesystem>
#include <map>

#include "tests/edge/edge_kit.h"
#include "tests/support/fault_proxy.h"
#include "tests/support/hole_map.h"
#include "tests/support/own_file_system.h"

namespace tests {
namespace {

namespace fs = std::filesystem;

constexpr std::uint64_t kPiece = 65536;  // no file system's blocks are larger
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

// A TiB once; elsewhere and under the sanitizers less is enough.
constexpr std::uint64_t HugeSize(std::string_view place) {
    return std::uint64_t{1} << (kSanitized || place != "temporary" ? 36 : 40);
}

/// Copies between two directories of one file system: the temporary directory's, or one made for the test.
class Holes : public testing::TestWithParam<const char*> {
  protected:
    void SetUp() override {
        std::string place = dir_.path();
        if (GetParam() != std::string("temporary")) {
            own_ = std::make_unique<own_file_system_t>(GetParam());
            if (!own_->WhyNot().empty()) {
                GTEST_SKIP() << own_->WhyNot();
            }
            place = own_->path();
        }
        source_ = place + "/source";
        root_ = place + "/root";
        fs::create_directory(source_);
        fs::create_directory(root_);
        options_.recursive = true;
        options_.compression = io::block::EBufTransformType::eNone;
    }

    void MakeFiles() const {
        const std::map<std::string, std::vector<extent_t>> files{
            {"none", {{0, 16 * kPiece}}},
            {"start", {{3 * kPiece, 16 * kPiece}}},
            {"middle", {{0, 2 * kPiece}, {9 * kPiece, 16 * kPiece}}},
            {"end", {{0, 5 * kPiece}}},
            {"only", {}},
            {"comb", {{0, kPiece}, {2 * kPiece, 3 * kPiece}, {4 * kPiece, 5 * kPiece}, {6 * kPiece, 7 * kPiece}}},
        };
        for (const auto& [name, data] : files) {
            MakeSparseFile(source_ + "/" + name, 16 * kPiece, data);
        }
        WriteFile(source_ + "/zeroes", std::string(4 * kPiece, '\0'));  // all of it written
        MakeSparseFile(source_ + "/odd", 7 * kPiece + 1, {{kPiece + 5, 2 * kPiece + 7}, {7 * kPiece, 7 * kPiece + 1}});
    }

    // Everything arrived, with the same bytes and the same holes.
    void ExpectFiles() const {
        std::size_t files = 0;
        for (const auto& entry : fs::directory_iterator(source_)) {
            if (!entry.is_regular_file()) {
                continue;  // an agent's staging folder
            }
            const std::string name = entry.path().filename();
            ASSERT_TRUE(fs::exists(root_ + "/source/" + name)) << name;
            EXPECT_TRUE(ReadFile(entry.path()) == ReadFile(root_ + "/source/" + name)) << name;
            EXPECT_EQ(DataExtentsOf(entry.path()), DataExtentsOf(root_ + "/source/" + name)) << name;
            EXPECT_LE(RoomOf(root_ + "/source/" + name), RoomOf(entry.path()) + kPiece) << name;
            ++files;
        }
        EXPECT_EQ(files, 8U);
    }

    // A file of that size with three pieces of data in it; false where there can be none so large.
    bool MakeHuge() const {
        try {
            MakeSparseFile(source_ + "/huge", huge_, HugeData());
        } catch (const std::exception&) {
            return false;
        }
        return true;
    }
    std::vector<extent_t> HugeData() const {
        return {{kPiece, 2 * kPiece}, {huge_ / 2, huge_ / 2 + kPiece}, {huge_ - 3 * kPiece, huge_ - 2 * kPiece}};
    }
    void ExpectHuge() const {
        const std::string path = root_ + "/source/huge";
        ASSERT_TRUE(fs::exists(path));
        EXPECT_EQ(fs::file_size(path), huge_);
        EXPECT_EQ(DataExtentsOf(path), HugeData());
        EXPECT_LE(RoomOf(path), 6 * kPiece);
    }

    copy_outcome_t CopyTo(const std::string& destination) const { return CopyAll({source_}, destination, options_); }

    const temp_dir_t dir_;
    std::uint64_t huge_ = HugeSize(GetParam());
    std::unique_ptr<own_file_system_t> own_;
    std::string source_;
    std::string root_;
    agent::copy::copy_options_t options_;
};

TEST_P(Holes, ArriveAsTheyAreByALocalCopy) {
    MakeFiles();
    const copy_outcome_t outcome = CopyTo(root_);
    EXPECT_TRUE(outcome.IsClean()) << outcome.Failure();
    ExpectFiles();
}

TEST_P(Holes, ArriveAsTheyAreThroughAnAgent) {
    MakeFiles();
    const serve_child_t server(TARN_COMMAND, root_);
    for (const auto compression : {io::block::EBufTransformType::eNone, io::block::EBufTransformType::eZstd}) {
        options_.compression = compression;
        const copy_outcome_t outcome = CopyTo(Remote(server.Port(), ""));
        EXPECT_TRUE(outcome.IsClean()) << outcome.Failure();
        ExpectFiles();
        fs::remove_all(root_ + "/source");
    }
}

TEST_P(Holes, ArriveAsTheyAreReadBackFromAnAgent) {
    MakeFiles();
    const serve_child_t server(TARN_COMMAND, source_);
    fs::create_directory(root_ + "/source");
    for (const auto compression : {io::block::EBufTransformType::eNone, io::block::EBufTransformType::eZstd}) {
        options_.compression = compression;
        for (const auto& entry : fs::directory_iterator(source_)) {
            if (entry.is_regular_file()) {
                const std::string name = entry.path().filename();
                const copy_outcome_t outcome =
                    CopyAll({Remote(server.Port(), name)}, root_ + "/source/" + name, options_);
                EXPECT_TRUE(outcome.IsClean()) << outcome.Failure();
            }
        }
        ExpectFiles();
        fs::remove_all(root_ + "/source");
        fs::create_directory(root_ + "/source");
    }
}

// The block size says nothing about holes: they are as they are.
TEST_P(Holes, ArriveAsTheyAreWhateverTheBlockSize) {
    MakeFiles();
    for (const std::uint64_t blockSize : {std::uint64_t{4096}, std::uint64_t{3 * 4096}, std::uint64_t{16} << 20}) {
        options_.blockSize = blockSize;
        const copy_outcome_t outcome = CopyTo(root_);
        EXPECT_TRUE(outcome.IsClean()) << outcome.Failure();
        ExpectFiles();
        fs::remove_all(root_ + "/source");
    }
}

TEST_P(Holes, HugeHoleCostsNothingLocally) {
    if (!MakeHuge()) {
        GTEST_SKIP() << "no file of " << huge_ << " bytes can be made here";
    }
    const copy_outcome_t outcome = CopyTo(root_);
    EXPECT_TRUE(outcome.IsClean()) << outcome.Failure();
    ExpectHuge();
}

// The connection carries a frame and its answer for every 64 MiB, and the data.
TEST_P(Holes, HugeHoleCostsNothingOnTheWire) {
    if (!MakeHuge()) {
        GTEST_SKIP() << "no file of " << huge_ << " bytes can be made here";
    }
    const serve_child_t server(TARN_COMMAND, root_);
    fault_proxy_t proxy(server.Port());
    const copy_outcome_t outcome = CopyTo(Remote(proxy.Port(), ""));
    EXPECT_TRUE(outcome.IsClean()) << outcome.Failure();
    ExpectHuge();
    const std::uint64_t frames = huge_ / (64 << 20) + 10;
    EXPECT_LE(proxy.Passed(EWay::eThere).size(), frames * 80 + 3 * kPiece + 20000);
    EXPECT_LE(proxy.Passed(EWay::eBack).size(), frames * 80 + 20000);
}

TEST_P(Holes, HugeHoleCostsNothingOnItsWayBack) {
    huge_ = HugeSize("");
    if (!MakeHuge()) {
        GTEST_SKIP() << "no file of " << huge_ << " bytes can be made here";
    }
    const serve_child_t server(TARN_COMMAND, source_);
    fault_proxy_t proxy(server.Port());
    fs::create_directory(root_ + "/source");
    const copy_outcome_t outcome = CopyAll({Remote(proxy.Port(), "huge")}, root_ + "/source/huge", options_);
    EXPECT_TRUE(outcome.IsClean()) << outcome.Failure();
    ExpectHuge();
    const std::uint64_t frames = huge_ / (64 << 20) + 10;
    EXPECT_LE(proxy.Passed(EWay::eBack).size(), frames * 80 + 3 * kPiece + 20000);
}

INSTANTIATE_TEST_SUITE_P(On, Holes, testing::Values("temporary", "tmpfs", "ext4", "xfs"),
                         [](const auto& place) { return std::string(place.param); });

}  // namespace
}  // namespace tests
