#include <gmock/gmock.h>

#include <atomic>
#include <functional>
#include <thread>

#include "agent/send/area_pipe.h"
#include "agent/send/send_client.h"
#include "tests/edge/raw_sender.h"
#include "tests/edge/scripted_server.h"
#include "tests/support/caught_error.h"
#include "tests/support/fake_clock.h"
#include "tests/support/send_server.h"
#include "tests/support/transfer_kit.h"

/// A reader that asks for a file and then takes nothing of it: the far end is neither left in silence nor kept for
/// ever.
namespace tests {
namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;

constexpr std::size_t kBlock = 4096;
constexpr std::size_t kBlocks = 60;  // more than the pipe and the window together hold
constexpr std::uint64_t kWindow = 8;
constexpr std::size_t kRequest = 4 + 4 + 4 + 8 + 4 + 4;

class StalledReader : public testing::Test {
  protected:
    // What a server says and hears before the frames.
    void Announce(raw_peer_t& peer) {
        Grant(peer);
        peer.Receive(kRequest);
        peer.Send(kAccepted + Announcement(FileItem(content_.size()), content_.size()));
        EXPECT_EQ(ReadU32(peer), 0U) << "the item is taken";
        EXPECT_EQ(ReadU32(peer), 0U) << "no keysets";
        peer.Send(NetworkConfiguration());
        peer.Receive(16);
    }

    // Sends blocks as far as credits go, and a sign of life for each that it hears. False when a status came instead.
    bool SendBlocks(raw_peer_t& peer) {
        std::uint64_t limit = kWindow;
        for (std::uint64_t next = 0; next < kBlocks;) {
            if (next < limit) {
                peer.Send(DataFrame(next, next * kBlock, content_.substr(next * kBlock, kBlock)));
                sent_ = ++next;
                continue;
            }
            const frame_header_t header = ReadFrame(peer);
            if (header.type == EFrameType::eStatus) {
                ended_ = true;
                return false;
            }
            if (header.type == EFrameType::eCredit) {
                limit = header.block;
            } else {
                peer.Send(Frame({.type = EFrameType::eBusy}));
                peer.WaitTaken();  // the client is never more than one sign behind
                ++signs_;
            }
        }
        return true;
    }

    // The pipe is full and the window used up: the client has given its last credit.
    void WaitUntilStuck() const {
        ASSERT_TRUE(Until([this] { return sent_ == agent::send::area_pipe_t::kMaxAreas + kWindow; }));
    }

    // Moves the time on and waits until the far end has heard of the client.
    void PassTime() {
        const int before = signs_;
        clock_.Advance(50s);
        ASSERT_TRUE(Until([&] { return signs_ > before || ended_; })) << "no sign of life";
    }

    static bool Until(const std::function<bool()>& isSo) {
        const auto end = std::chrono::steady_clock::now() + kPatience;
        while (!isSo() && std::chrono::steady_clock::now() < end) {
            std::this_thread::yield();
        }
        return isSo();
    }

    std::atomic<std::uint64_t> sent_ = 0;
    std::atomic<int> signs_ = 0;
    std::atomic<bool> ended_ = false;
    fake_clock_t clock_;
    const std::string content_ = Noise(kBlocks * kBlock);
};

TEST_F(StalledReader, FarEndHearsSignsOfLifeAndSendsTheRestWhenReadingGoesOn) {
    scripted_server_t server([&](raw_peer_t& peer) {
        Announce(peer);
        EXPECT_TRUE(SendBlocks(peer));
        peer.Send(EndFrame(content_, kBlocks));
        ReadFrame(peer, EFrameType::eStatus);
        EXPECT_EQ(ReadU32(peer), 0U);
        peer.Send(kEndOfUpload);
        EXPECT_EQ(ReadU32(peer), 2U) << "the end of the session";
    });
    {
        agent::send::send_client_t client({"127.0.0.1", server.Port()}, {});
        const auto file = client.Open({"file", 0, kBlock, io::block::EBufTransformType::eNone});
        WaitUntilStuck();
        for (int beat = 0; beat < 4; ++beat) {  // longer than the idle time
            PassTime();
        }
        EXPECT_EQ(ReadAllOf(*file), content_);
    }
    server.Join();
}

TEST_F(StalledReader, NobodyHoldsTheFarEndForEver) {
    scripted_server_t server([&](raw_peer_t& peer) {
        Announce(peer);
        EXPECT_FALSE(SendBlocks(peer));
    });
    agent::send::send_client_t client({"127.0.0.1", server.Port()}, {});
    const auto file = client.Open({"file", 0, kBlock, io::block::EBufTransformType::eNone});
    const auto begin = clock_.SteadyNow();
    WaitUntilStuck();
    for (int beat = 0; beat < 200 && !ended_; ++beat) {
        PassTime();
    }
    EXPECT_TRUE(ended_);
    EXPECT_GE(clock_.SteadyNow() - begin, agent::send::area_pipe_t::kPatience);
    server.Join();
    EXPECT_THAT(CatchError([&] { ReadAllOf(*file); }).what, HasSubstr("Nobody has read of [tarn://127.0.0.1:"));
}

}  // namespace
}  // namespace tests
