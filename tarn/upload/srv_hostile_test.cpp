#include <filesystem>
#include <fstream>
#include <random>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "corvel/corvel_ctx.h"
#include "mirrowen/exc/runtime_exc.h"
#include "tarn/blocks/file_area_dev_factory.h"
#include "tarn/upload/file_upload_srv.h"
#include "tests/support/caught_error.h"
#include "tests/support/log_lines.h"
#include "tests/support/scoped_path_mapper.h"
#include "tests/support/scripted_dev.h"
#include "tests/support/temp_dir.h"
#include "tests/support/upload_kit.h"

/// A sender that stops in the middle, lies about lengths or sends noise: the session ends with its text, nothing large
/// is read or made room for, and no other file is touched.
namespace {

namespace fs = std::filesystem;
using testing::AnyOf;
using testing::StartsWith;
using tests::message_t;

class HostileSender : public testing::Test {
  protected:
    void SetUp() override {
        CCorvelCtx::Inst()->RegisterAreaDevFactory(std::make_shared<tarn::CFileAreaDevFactory>());
        std::ofstream(Path("bystander")) << "untouched";
    }

    void TearDown() override {
        std::ifstream in(Path("bystander"));
        std::string content;
        std::getline(in, content);
        EXPECT_EQ(content, "untouched");
        for (const auto& entry : fs::directory_iterator(dir.path())) {
            const std::string name = entry.path().filename().string();
            EXPECT_THAT(name, AnyOf("bystander", "a", "l"));
        }
    }

    tests::caught_error_t Serve(const std::string& script) {
        channel = std::make_shared<tests::scripted_dev_t>(script);
        tarn::file_upload_srv_t server(channel, console, false, 1, compat::SCompatibilityInfo());
        return tests::CatchError([&] { server.HandleCmds(nullptr); });
    }

    std::string Path(const std::string& name) const { return dir / name; }

    std::string FileInfoBytes() const {
        util::CFileInfo info;
        info.type = util::EFileType::eRegular;
        info.owner.name = "ann";
        return tests::BytesWritten([&](io::binary_stream_tt& stream) { info.Serialize(stream); });
    }

    /// One good message of each kind, without the end of the session.
    std::vector<std::string> Messages() const {
        const std::string a = Path("a");
        return {
            message_t().U32(1).Text(a).U64(5).U32(0).U32(4096),
            message_t().U32(3).Text("/d").Text("/b").U64(7).U32(4096),
            message_t().U32(4).Text(a).U64(5).U32(0).U32(4096).Raw(FileInfoBytes()),
            message_t().U32(5).Text("file").Text(a).U64(5).U32(0).U32(1).U32(4096),
            message_t().U32(6).Text("file").Text(a).U64(5).U32(0).U32(1).U32(4096).Raw(FileInfoBytes()),
            message_t().U32(7).Text("/d").Text("/b").Text("/c").U64(7).U32(4096),
            message_t().U32(8).Text("file").Text(a).U64(5).U32(0).U32(4096),
            message_t().U32(9).U32(2).Text(a).Text(Path("bystander")),
            message_t().U32(10).Text(Path("l")).Text("../x"),
        };
    }

    std::shared_ptr<tests::scripted_dev_t> channel;
    tests::recording_console_t console;
    tests::temp_dir_t dir;
    tests::log_lines_t log;
    /// Noise may name any path: none outside the test's own folder is let through.
    tests::scoped_path_mapper_t confined{[top = dir / ""](const std::string& path) {
        if (!path.starts_with(top)) {
            throw exc::CRuntimeExc("Path [%1] is outside.", path);
        }
        return path;
    }};
};

TEST_F(HostileSender, MessageCutAnywhereEndsTheSession) {
    for (const std::string& message : Messages()) {
        for (std::size_t length = 0; length < message.size(); ++length) {
            const auto caught = Serve(message.substr(0, length));
            EXPECT_EQ(caught.type, "exc::CRuntimeExc");
            EXPECT_EQ(caught.message, "Unable to process file upload commands.");
            ASSERT_FALSE(caught.causes.empty());
            EXPECT_THAT(caught.causes.back(), StartsWith("Failed to retrieve value from the binary stream: received "
                                                         "less bytes"))
                << "command " << int{message[0]} << " cut at " << length;
        }
    }
    EXPECT_FALSE(fs::exists(Path("a")));
    EXPECT_FALSE(fs::is_symlink(Path("l")));
}

TEST_F(HostileSender, WhoAskedForAnItemServesNothingElse) {
    for (const std::string& message : Messages()) {
        channel = std::make_shared<tests::scripted_dev_t>(message);
        tarn::file_upload_srv_t server(channel, console, false, 1, compat::SCompatibilityInfo());
        server.ServeOnlyItemsOf("agent-item");
        const auto caught = tests::CatchError([&] { server.HandleCmds(nullptr); });
        ASSERT_FALSE(caught.causes.empty());
        EXPECT_EQ(caught.causes.back(), message[0] == 5
                                            ? "Items of type [file] are not served here."
                                            : "Command [" + std::to_string(int{message[0]}) + "] is not served here.");
        EXPECT_LE(channel->position, message[0] == 5 ? 12U : 4U) << "more was read than needed to refuse it";
    }
    EXPECT_FALSE(fs::exists(Path("a")));
    EXPECT_FALSE(fs::is_symlink(Path("l")));
}

TEST_F(HostileSender, WhoAskedForAnItemDoesNotSkipUnknownCommands) {
    channel = std::make_shared<tests::scripted_dev_t>(message_t().U32(77).U32(2).Bytes());
    tarn::file_upload_srv_t server(channel, console, false, 1, compat::SCompatibilityInfo());
    server.ServeOnlyItemsOf("agent-item");
    const auto caught = tests::CatchError([&] { server.HandleCmds(nullptr); });
    ASSERT_FALSE(caught.causes.empty());
    EXPECT_EQ(caught.causes.back(), "Command [77] is not served here.");
}

TEST_F(HostileSender, LengthsThatLieCostNothing) {
    const auto disk = message_t().Text("/d").Text("/b").Bytes();
    const auto item = message_t().Text("file").Text(Path("a")).U64(5).U32(0).U32(1).U32(4096).Bytes();
    // Each beginning ends where a length or a count comes next.
    const std::vector<std::string> beginnings{
        message_t().U32(1),
        message_t().U32(3),
        message_t().U32(3).Text("/d"),
        message_t().U32(4),
        message_t().U32(5),
        message_t().U32(5).Text("file"),
        message_t().U32(6).Raw(item).Raw(FileInfoBytes().substr(0, 16)),
        message_t().U32(7),
        message_t().U32(7).Raw(disk),
        message_t().U32(8),
        message_t().U32(8).Text("file"),
        message_t().U32(9),
        message_t().U32(9).U32(1),
        message_t().U32(10),
        message_t().U32(10).Text(Path("l")),
    };
    for (const std::string& beginning : beginnings) {
        const auto caught = Serve(message_t().Raw(beginning).U32(0xFFFFFFFF).Raw("few bytes"));
        EXPECT_EQ(caught.message, "Unable to process file upload commands.");
        EXPECT_LE(channel->largestRead, 65537U);
    }
    EXPECT_FALSE(fs::exists(Path("a")));
    EXPECT_FALSE(fs::is_symlink(Path("l")));
}

TEST_F(HostileSender, NoiseEndsTheSession) {
    const unsigned seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::cout << "seed " << seed << '\n';
    std::mt19937 random(seed);
    for (int round = 0; round < 2000; ++round) {
        // Small numbers first, so that most rounds reach a command and its lengths.
        std::string noise(4, '\0');
        noise[0] = static_cast<char>(random() % 12);
        for (std::size_t i = 0, count = random() % 64; i < count; ++i) {
            noise += static_cast<char>(random() % 4 == 0 ? random() : 0);
        }
        if (noise[0] == 2) {
            continue;
        }
        const auto caught = Serve(noise);
        if (caught.thrown) {
            EXPECT_EQ(caught.message, "Unable to process file upload commands.");
        } else {
            EXPECT_EQ(channel->input.substr(channel->position - 4, 4), message_t().U32(2).Bytes());
        }
        EXPECT_LE(channel->largestRead, 65536U);
    }
}

}  // namespace
