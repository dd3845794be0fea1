#include <gmock/gmock.h>
#include <signal.h>
#include <sys/stat.h>

#include <filesystem>

#include "tests/reliability/recorded_calls.h"
#include "tests/support/child_process.h"
#include "tests/support/temp_dir.h"

namespace tests {
namespace {

using ::testing::Contains;
using ::testing::IsEmpty;
using ::testing::Not;

enum class ERoad { eLocal, eAgent };

std::ostream& operator<<(std::ostream& out, ERoad road) {
    return out << (road == ERoad::eLocal ? "Local" : "Agent");
}

/// Watches the process that writes, and judges the order of its calls: what a power cut at any of them would leave.
class DurableOrder : public testing::TestWithParam<ERoad> {
  protected:
    void SetUp() override {
        if (std::string_view(TARN_CALL_WATCH).empty()) {
            GTEST_SKIP() << "calls are not recorded under a sanitizer";
        }
        std::filesystem::create_directories(dir_ / "source/tree/sub/deeper");
        std::filesystem::create_directories(dir_ / "root");
    }

    void MakeFiles(int count) const {
        for (int number = 0; number < count; ++number) {
            const char* const place = number % 3 == 0 ? "" : number % 3 == 1 ? "sub/" : "sub/deeper/";
            WriteFile(dir_ / ("source/tree/" + (place + std::to_string(number))), std::string(5000, 'x'));
        }
        std::filesystem::create_symlink("target", dir_ / "source/tree/sub/link");
    }

    /// Copies the tree and returns what the writing process did.
    recorded_calls_t Copy(const std::string& durable, const std::vector<std::string>& more = {}) const {
        const std::vector<std::string> watched = {std::string("LD_PRELOAD=") + TARN_CALL_WATCH,
                                                  "TARN_WATCH_LOG=" + (dir_ / "log")};
        std::vector<std::string> sender = {TARN_COMMAND, "cp", "-r", durable, "--plaintext"};
        sender.insert(sender.end(), more.begin(), more.end());
        sender.push_back(dir_ / "source/tree");
        if (GetParam() == ERoad::eLocal) {
            Run(sender, dir_ / "root", watched);
        } else {
            child_process_t server({TARN_COMMAND, "serve", "--plaintext", "--listen", "127.0.0.1:0", "--root",
                                    dir_ / "root", "--unconfined"},
                                   watched);
            const std::string line = server.ReadLine().value_or(server.Errors());
            Run(sender, "tarn://" + line.substr(line.rfind(' ') + 1) + "/", {});
            server.Kill(SIGTERM);
            EXPECT_EQ(server.Wait(), 0) << server.Errors();
        }
        return recorded_calls_t(dir_ / "log");
    }

    static void Run(std::vector<std::string> words, const std::string& destination,
                    const std::vector<std::string>& environment) {
        words.push_back(destination);
        child_process_t copy(words, environment);
        EXPECT_EQ(copy.Wait(), 0) << copy.Errors();
    }

    /// The directories in which targets lie.
    std::set<ino_t> Directories() const {
        std::set<ino_t> inodes;
        for (const char* const name : {"root", "root/tree", "root/tree/sub", "root/tree/sub/deeper"}) {
            struct stat found {};
            EXPECT_EQ(::stat((dir_ / name).c_str(), &found), 0) << name;
            inodes.insert(found.st_ino);
        }
        return inodes;
    }

    temp_dir_t dir_;
};

/// Only an agent takes batches.
class DurableOrderOfBatches : public DurableOrder {};

TEST_P(DurableOrder, EachSettlesEveryItemBeforeTheNext) {
    MakeFiles(12);
    const recorded_calls_t calls = Copy("--durable=each", {"--no-batch"});
    EXPECT_EQ(calls.Named(Directories()).size(), 13U);
    EXPECT_THAT(calls.Tears(Directories()), IsEmpty());
    EXPECT_THAT(calls.Unsettled(Directories()), IsEmpty());
    EXPECT_EQ(calls.Count("syncfs"), 0U);
}

TEST_P(DurableOrderOfBatches, EachSettlesEveryBatchBeforeTheNext) {
    MakeFiles(12);
    std::filesystem::create_hard_link(dir_ / "source/tree/0", dir_ / "source/tree/0 again");
    const recorded_calls_t calls = Copy("--durable=each");
    const std::set<ino_t> named = calls.Named(Directories());
    EXPECT_EQ(named.size(), 13U);
    EXPECT_THAT(calls.Tears(Directories()), IsEmpty());
    // The first name, then its hard link by itself, then the rest in a batch that is large enough for a syncfs.
    EXPECT_EQ(calls.Count("syncfs"), 1U);
    EXPECT_EQ(calls.Count("fsync", named), 1U);
}

TEST_P(DurableOrder, TreeSettlesAGroupAtOnce) {
    MakeFiles(30);
    const recorded_calls_t calls = Copy("--durable=tree");
    const std::set<ino_t> named = calls.Named(Directories());
    EXPECT_EQ(named.size(), 31U);
    EXPECT_THAT(calls.Tears(Directories()), IsEmpty());
    EXPECT_EQ(calls.Count("syncfs"), 1U);
    EXPECT_EQ(calls.Count("fsync", named), 0U);
    EXPECT_LE(calls.Count("fsync", Directories()), Directories().size());
}

TEST_P(DurableOrder, TreeSettlesFewFilesOneByOneWithoutTheWholeFileSystem) {
    MakeFiles(4);
    const recorded_calls_t calls = Copy("--durable=tree");
    EXPECT_EQ(calls.Named(Directories()).size(), 5U);
    EXPECT_THAT(calls.Tears(Directories()), IsEmpty());
    EXPECT_EQ(calls.Count("syncfs"), 0U);
}

TEST_P(DurableOrder, NoneWaitsForNothing) {
    MakeFiles(12);
    const recorded_calls_t calls = Copy("--durable=none");
    const std::set<ino_t> named = calls.Named(Directories());
    EXPECT_EQ(named.size(), 13U);
    EXPECT_EQ(calls.Count("syncfs"), 0U);
    EXPECT_EQ(calls.Count("fsync", named), 0U);
    EXPECT_EQ(calls.Count("fsync", Directories()), 0U);
    // The judge of the other tests sees it.
    EXPECT_THAT(calls.Tears(Directories()), Contains("0: named before it is synchronised"));
    EXPECT_THAT(calls.Unsettled(Directories()), Not(IsEmpty()));
}

INSTANTIATE_TEST_SUITE_P(All, DurableOrderOfBatches, testing::Values(ERoad::eAgent), testing::PrintToStringParamName());
INSTANTIATE_TEST_SUITE_P(All, DurableOrder, testing::Values(ERoad::eLocal, ERoad::eAgent),
                         testing::PrintToStringParamName());

}  // namespace
}  // namespace tests
