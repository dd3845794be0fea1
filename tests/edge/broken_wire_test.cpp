#include <algorithm>
#include <iterator>
#include <ostream>
#include <string_view>

#include "tests/edge/edge_kit.h"
#include "tests/support/fault_proxy.h"
#include "tests/support/transfer_kit.h"

namespace tests {
namespace {

enum class EThing { eSmallFile, eThreeBlocks, eDirectory, eLink };

/// One kind of item, one way of the wire, one kind of fault.
struct wire_case_t {
    const char* name;
    EThing thing;
    EWay way;
    EWireFault fault;

    friend std::ostream& operator<<(std::ostream& out, const wire_case_t& shown) { return out << shown.name; }
};

/// Copies one item again and again, each time with the fault at the next byte.
class BrokenWire : public edge_fixture_t, public testing::WithParamInterface<wire_case_t> {
  protected:
    BrokenWire() {
        options_.overwrite = options_.force = true;  // no question before the item
        options_.recursive = true;
        options_.blockSize = 4096;
        options_.compression = io::block::EBufTransformType::eNone;
        MakeThing();
    }

    static bool IsCut() { return GetParam().fault == EWireFault::eCut || GetParam().fault == EWireFault::eReset; }

    static bool SaysThatTheWireBroke(const std::string& text) {
        static constexpr std::string_view signs[] = {"received less bytes (",
                                                     "Failed to receive from [127.0.0.1:",
                                                     "Failed to send to [127.0.0.1:",
                                                     "Failed to connect to [127.0.0.1:",
                                                     "The far end closed the channel during a transfer",
                                                     "Transport endpoint is not connected"};
        return std::any_of(std::begin(signs), std::end(signs),
                           [&](std::string_view sign) { return text.find(sign) != std::string::npos; });
    }

    void MakeThing() {
        switch (GetParam().thing) {
            case EThing::eSmallFile:
                content_ = "seven bytes and some more";
                return WriteFile(Source("thing"), content_);
            case EThing::eThreeBlocks:
                content_ = Noise(3 * 4096 - 5);
                return WriteFile(Source("thing"), content_);
            case EThing::eDirectory:
                std::filesystem::create_directory(Source("thing"));
                return;
            case EThing::eLink:
                std::filesystem::create_symlink("to/nowhere", Source("thing"));
                return;
        }
    }

    copy_outcome_t CopyThing() const { return CopyAll({Source("thing")}, Remote(proxy_.Port(), "out"), options_); }

    bool IsComplete(const std::string& path) const {
        const std::filesystem::file_status status = std::filesystem::symlink_status(path);
        switch (GetParam().thing) {
            case EThing::eSmallFile:
            case EThing::eThreeBlocks:
                return std::filesystem::is_regular_file(status) && ReadFile(path) == content_;
            case EThing::eDirectory:
                return std::filesystem::is_directory(status);
            case EThing::eLink:
                return std::filesystem::is_symlink(status);
        }
        return false;
    }

    // The root has nothing or the whole item; a byte of the name that was flipped gives the item another name.
    void ExpectNothingOrAll() const {
        const root_view_t root = ViewRoot();
        EXPECT_EQ(root.staged, 0U);
        if (IsCut()) {
            for (const std::string& name : root.names) {
                EXPECT_EQ(name, "out");
            }
        }
        for (const std::string& name : root.names) {
            const std::string path = Root() + "/" + name;
            const bool isParent = std::filesystem::is_directory(path) && root.names.size() > 1;
            EXPECT_TRUE(isParent || IsComplete(path)) << name;
        }
    }

    void ExpectTexts(const copy_outcome_t& outcome, const std::string& session) const {
        if (outcome.IsClean()) {
            EXPECT_EQ(ViewRoot().names.empty(), false);
            return;
        }
        EXPECT_EQ(session.rfind("failed: ", 0), 0U) << session << "\n" << outcome.Failure();
        if (IsCut()) {
            EXPECT_TRUE(SaysThatTheWireBroke(session)) << session;
            EXPECT_TRUE(SaysThatTheWireBroke(outcome.Failure())) << outcome.Failure();
        }
        if (!outcome.thrown.empty()) {
            return;
        }
        // The failed item: named by path, told with a cause below the headline.
        ASSERT_EQ(outcome.report.failed.size(), 1U);
        const auto& note = outcome.report.failed.front();
        EXPECT_EQ(note.path, Source("thing"));
        EXPECT_NE(note.text.find("Failed to "), std::string::npos) << note.text;
        EXPECT_NE(note.text.find('\n'), std::string::npos) << note.text;
    }

    serve_child_t server_{TARN_COMMAND, Root()};
    fault_proxy_t proxy_{server_.Port()};
    agent::copy::copy_options_t options_;
    std::string content_;
};

TEST_P(BrokenWire, LeavesNothingOrTheWholeItemAndAServerThatServes) {
    ASSERT_EQ(CopyThing().Failure(), "");
    ASSERT_EQ(server_.WaitSession(), "ended");
    ASSERT_TRUE(IsComplete(Root() + "/out"));
    const std::uint64_t bytes = proxy_.Passed(GetParam().way).size();
    // The content of the blocks is long and the same all over: of it every 61st byte.
    const std::uint64_t frames = bytes > 4000 ? 600 : bytes;
    for (std::uint64_t at = 0; at <= bytes; at += at > frames && at + 400 < bytes ? 61 : 1) {
        SCOPED_TRACE(testing::Message() << "byte " << at << " of " << bytes);
        ClearRoot();
        const std::size_t before = proxy_.Connections();
        proxy_.Plan({GetParam().way, at, GetParam().fault});
        // A flipped length can make both ends wait for each other; the sender is the one that gives up.
        options_.remote.idleTimeout = IsCut() ? kPatience : std::chrono::milliseconds(150);
        const copy_outcome_t outcome = CopyThing();
        const std::string session = server_.WaitSession();
        ASSERT_EQ(proxy_.Connections(), before + 1);
        ExpectTexts(outcome, session);
        ExpectNothingOrAll();
        if (HasFailure()) {
            break;
        }
    }
    EXPECT_TRUE(server_.IsBackAtStart());
    options_.remote.idleTimeout = kPatience;
    EXPECT_EQ(CopyThing().Failure(), "");
    EXPECT_EQ(server_.WaitSession(), "ended");
}

INSTANTIATE_TEST_SUITE_P(
    All, BrokenWire,
    testing::Values(wire_case_t{"SmallFileThereCut", EThing::eSmallFile, EWay::eThere, EWireFault::eCut},
                    wire_case_t{"SmallFileThereReset", EThing::eSmallFile, EWay::eThere, EWireFault::eReset},
                    wire_case_t{"SmallFileThereFlip", EThing::eSmallFile, EWay::eThere, EWireFault::eFlip},
                    wire_case_t{"SmallFileBackCut", EThing::eSmallFile, EWay::eBack, EWireFault::eCut},
                    wire_case_t{"SmallFileBackFlip", EThing::eSmallFile, EWay::eBack, EWireFault::eFlip},
                    wire_case_t{"ThreeBlocksThereCut", EThing::eThreeBlocks, EWay::eThere, EWireFault::eCut},
                    wire_case_t{"ThreeBlocksThereFlip", EThing::eThreeBlocks, EWay::eThere, EWireFault::eFlip},
                    wire_case_t{"ThreeBlocksBackCut", EThing::eThreeBlocks, EWay::eBack, EWireFault::eCut},
                    wire_case_t{"ThreeBlocksBackFlip", EThing::eThreeBlocks, EWay::eBack, EWireFault::eFlip},
                    wire_case_t{"DirectoryThereCut", EThing::eDirectory, EWay::eThere, EWireFault::eCut},
                    wire_case_t{"LinkThereCut", EThing::eLink, EWay::eThere, EWireFault::eCut},
                    wire_case_t{"LinkThereFlip", EThing::eLink, EWay::eThere, EWireFault::eFlip}),
    [](const auto& param) { return param.param.name; });

}  // namespace
}  // namespace tests
