#include "agent/send/send_session.h"

#include <sys/socket.h>
#include <sys/stat.h>

#include <filesystem>
#include <future>
#include <random>

#include <gmock/gmock.h>

#include "tests/edge/raw_frame.h"
#include "tests/edge/raw_session.h"
#include "tests/support/caught_error.h"
#include "tests/support/root_fixture.h"

namespace agent::send {
namespace {

using namespace std::string_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using tests::EFrameType;
using tests::wire_text_t;

constexpr std::uint32_t kPlain = 0xFFFFFFFF;  // no compression

wire_text_t Request(std::string_view path, std::uint64_t offset = 0, std::uint32_t blockSize = 4096,
                    std::uint32_t compression = kPlain) {
    return wire_text_t().U32(1).String(path).U64(offset).U32(blockSize).U32(compression);
}

/// The far end of a session that runs on a thread of its own, byte by byte.
class SendSession : public testing::Test {
  protected:
    SendSession() {
        std::filesystem::create_directories(Root() + "/dir");
        std::filesystem::create_directory(Root() + "/.tarn-staging");
        tests::WriteFile(Root() + "/file", "abc");
        tests::WriteFile(Root() + "/dir/inner", "inside");
        tests::WriteFile(Root() + "/.tarn-staging/secret", "secret");
        tests::WriteFile(dir_ / "outside", "secret");
        std::filesystem::create_symlink("../outside", Root() + "/link");
        std::filesystem::create_directory_symlink("..", Root() + "/up");
        EXPECT_EQ(::mkfifo((Root() + "/fifo").c_str(), 0600), 0);
        int ends[2];
        EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
        peer_.emplace(tests::raw_peer_t::Adopt(ends[0]));
        session_ = std::async(std::launch::async, [this, socket = ends[1]]() mutable {
            const auto channel = std::make_shared<net::session_channel_t>(
                posix::unique_fd_t(socket), "peer", io::net::socket_limits_t{tests::kPatience, stop_.get_token()}, 0);
            return tests::CatchError([&] { RunSendSession(channel, 1, root_); });
        });
    }
    ~SendSession() override { peer_.reset(); }

    std::string Root() const { return dir_ / "root"; }
    tests::raw_peer_t& Peer() { return *peer_; }
    void Send(const wire_text_t& message) { Peer().Send(message.Bytes()); }
    std::uint32_t ReceiveU32() { return tests::U32At(Peer().Receive(4), 0); }
    std::string ReceiveString() { return Peer().Receive(ReceiveU32()); }

    // How the session answers a request that it does not fulfil.
    std::string Refusal(const wire_text_t& request) {
        Send(request);
        EXPECT_EQ(ReceiveU32(), 1U);
        return ReceiveString();
    }

    // Reads the message of an item that was asked for, up to its file info.
    struct announced_t {
        std::uint32_t kind = 0;
        std::string path;
        std::string second;
    };
    announced_t ReceiveAnnouncement() {
        EXPECT_EQ(ReceiveU32(), 0U) << "the acknowledgement";
        EXPECT_EQ(ReceiveU32(), 0U) << "notes";
        EXPECT_EQ(ReceiveU32(), 5U) << "the command";
        EXPECT_EQ(ReceiveString(), "agent-item");
        Peer().Receive(4);  // version
        announced_t item;
        item.kind = ReceiveU32();
        Peer().Receive(16);  // copy
        item.path = ReceiveString();
        item.second = ReceiveString();
        return item;
    }

    // What the session came to.
    tests::caught_error_t Outcome() { return session_.get(); }

    tests::temp_dir_t dir_;
    std::shared_ptr<const confined_root_t> root_ = [this] {
        std::filesystem::create_directory(Root());
        posix::unique_fd_t fd(::open(Root().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        return std::make_shared<const confined_root_t>(std::move(fd), "");
    }();
    std::stop_source stop_;
    std::optional<tests::raw_peer_t> peer_;
    std::future<tests::caught_error_t> session_;
};

TEST_F(SendSession, LinkIsAnnouncedAsALinkUnderTheNameThatWasAskedFor) {
    Send(Request("link"));
    const announced_t item = ReceiveAnnouncement();
    EXPECT_EQ(item.kind, 3U);
    EXPECT_EQ(item.path, "link");
    EXPECT_EQ(item.second, "../outside");
}

TEST_F(SendSession, EndIsTheEnd) {
    Send(wire_text_t().U32(2));
    EXPECT_FALSE(Outcome().thrown);
}

TEST_F(SendSession, WhatCannotBeOpenedIsToldAndTheSessionGoesOn) {
    EXPECT_THAT(Refusal(Request("nothing")), HasSubstr("Failed to get attributes of [nothing]"));
    EXPECT_THAT(Refusal(Request("file/below")), HasSubstr("Failed to"));
    EXPECT_EQ(Refusal(Request("fifo")), "[fifo] is a FIFO, which is not sent.");
    EXPECT_EQ(Refusal(Request("file", 0, 4095)), "Block size [4095] is out of range.");
    EXPECT_EQ(Refusal(Request("file", 0, 0)), "Block size [0] is out of range.");
    EXPECT_EQ(Refusal(Request("file", 0, (1U << 24) + 1)), "Block size [16777217] is out of range.");
    EXPECT_EQ(Refusal(Request("file", 0, 4096, 7)), "Compression [7] is not known.");
    EXPECT_EQ(Refusal(Request("file", 4)), "[file] has [3] bytes, so it cannot be sent from [4] on.");
    EXPECT_EQ(Refusal(Request("file", ~std::uint64_t{0})),
              "[file] has [3] bytes, so it cannot be sent from [18446744073709551615] on.");
    EXPECT_EQ(Refusal(Request("dir", 1)), "[dir] is a directory, so it cannot be sent from [1] on.");
    Send(Request("file"));
    EXPECT_EQ(ReceiveAnnouncement().path, "file");
}

TEST_F(SendSession, NothingOutsideTheRootAndNothingStagedIsReached) {
    for (const std::string& path :
         {""s, "/"s, dir_ / "outside", ".."s, "../outside"s, "dir/../../outside"s, "./file"s, "dir/"s, "a//b"s,
          "file\0"s, ".tarn-staging"s, ".tarn-staging/secret"s, ".TARN-staging/secret"s, std::string(256, 'n')}) {
        EXPECT_THAT(Refusal(Request(path)), HasSubstr("is refused: ")) << path;
    }
    EXPECT_THAT(Refusal(Request("up/outside")), HasSubstr("Failed to"));
    EXPECT_THAT(Refusal(Request("up/root/file")), HasSubstr("Failed to"));
    Send(wire_text_t().U32(2));
    EXPECT_FALSE(Outcome().thrown);
}

TEST_F(SendSession, UnknownRequestEndsTheSession) {
    Send(wire_text_t().U32(3));
    EXPECT_EQ(Outcome().message, "Request [3] of the send service is not known.");
}

TEST_F(SendSession, PathLongerThanANameEndsTheSession) {
    Send(wire_text_t().U32(1).U32(1U << 30));
    EXPECT_THAT(Outcome().message, HasSubstr("longer than the allowed [4095]"));
}

TEST_F(SendSession, ReceiverThatRefusesTheItemEndsTheSession) {
    Send(Request("file"));
    ReceiveAnnouncement();
    Send(wire_text_t().U32(1).String("no room"));
    EXPECT_THAT(Outcome().what, HasSubstr("no room"));
}

TEST_F(SendSession, ReceiverThatGoesAwayEndsTheSession) {
    Send(Request("file"));
    ReceiveAnnouncement();
    peer_.reset();
    EXPECT_TRUE(Outcome().thrown);
}

TEST_F(SendSession, StopRequestEndsASessionThatWaits) {
    stop_.request_stop();
    EXPECT_THAT(Outcome().message, HasSubstr("was cancelled"));
}

TEST_F(SendSession, NoiseAfterTheAnnouncementEndsTheSession) {
    const unsigned seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    Send(Request("file"));
    ReceiveAnnouncement();
    std::string noise(4096, '\0');
    for (char& c : noise) {
        c = static_cast<char>(random());
    }
    noise[0] = 3;  // no acknowledgement
    Peer().Send(noise);
    peer_->CloseWrite();
    EXPECT_TRUE(Outcome().thrown);
}

}  // namespace
}  // namespace agent::send
