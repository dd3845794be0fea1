#include "mirrowen/io/net/socket_dev.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <string>
#include <thread>

#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/posix/errno_exc.h"
#include "tests/support/fake_clock.h"

namespace io::net {
namespace {

struct pair_t {
    std::unique_ptr<socket_dev_t> left;
    std::unique_ptr<socket_dev_t> right;
};

pair_t MakePair(socket_limits_t limits = {}) {
    int fds[2] = {-1, -1};
    EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds), 0);
    return {std::make_unique<socket_dev_t>(posix::unique_fd_t(fds[0]), "right", limits),
            std::make_unique<socket_dev_t>(posix::unique_fd_t(fds[1]), "left", limits)};
}

std::string ReadSome(socket_dev_t& device, std::size_t count) {
    std::string text(count, '\0');
    text.resize(device.Read(text.data(), count));
    return text;
}

template <class Function>
std::string MessageFrom(Function function) {
    try {
        function();
        return "nothing thrown";
    } catch (const exc::CException& error) {
        return error.Message();
    }
}

TEST(SocketDev, SmallWritesLeaveAtFlush) {
    const pair_t pair = MakePair();
    EXPECT_EQ(pair.left->Write("ab", 2), 2u);
    EXPECT_EQ(pair.left->Write("cd", 2), 2u);
    pair.left->Flush();
    EXPECT_EQ(ReadSome(*pair.right, 16), "abcd");
}

TEST(SocketDev, QuestionLeavesBeforeItsAnswerIsAwaited) {
    const pair_t pair = MakePair();
    pair.left->Write("question", 8);
    std::jthread peer([&] {
        EXPECT_EQ(ReadSome(*pair.right, 8), "question");
        pair.right->Write("answer", 6);
        pair.right->Flush();
    });
    EXPECT_EQ(ReadSome(*pair.left, 16), "answer");
}

TEST(SocketDev, SmallReadsTakeTheirPartsOfWhatHasArrived) {
    const pair_t pair = MakePair();
    pair.left->Write("abcdef", 6);
    pair.left->Flush();
    EXPECT_EQ(ReadSome(*pair.right, 2), "ab");
    EXPECT_EQ(ReadSome(*pair.right, 3), "cde");
    EXPECT_EQ(ReadSome(*pair.right, 1 << 20), "f");  // what is there, without waiting for more
    pair.left->Shutdown();
    EXPECT_EQ(ReadSome(*pair.right, 2), "");
}

TEST(SocketDev, LargeWriteTakesAllBytesThroughASmallSocketBuffer) {
    const pair_t pair = MakePair();
    const std::string sent(3 << 20, 'x');
    std::jthread writer([&] {
        EXPECT_EQ(pair.left->Write(sent.data(), sent.size()), sent.size());
        pair.left->Shutdown();
    });
    std::size_t received = 0;
    while (const std::size_t part = ReadSome(*pair.right, 65536).size()) {
        received += part;
    }
    EXPECT_EQ(received, sent.size());
}

TEST(SocketDev, ClosedPeerReadsAsTheEnd) {
    pair_t pair = MakePair();
    pair.right.reset();
    EXPECT_EQ(ReadSome(*pair.left, 1), "");
}

TEST(SocketDev, WritingToAClosedPeerIsAnErrorThatNamesIt) {
    pair_t pair = MakePair();
    pair.right.reset();
    pair.left->Write("x", 1);
    EXPECT_EQ(MessageFrom([&] { pair.left->Flush(); }), "Failed to send to [right]: Broken pipe");
}

TEST(SocketDev, SilentPeerIsGivenUpAfterTheIdleTimeout) {
    tests::fake_clock_t clock;
    const pair_t pair = MakePair({std::chrono::milliseconds(5000), {}});
    std::jthread time([&](const std::stop_token& stop) {
        while (!stop.stop_requested()) {
            clock.Advance(std::chrono::milliseconds(500));
            std::this_thread::yield();
        }
    });
    EXPECT_EQ(MessageFrom([&] { ReadSome(*pair.left, 1); }),
              "Connection with [right] timed out: nothing moved for 5000 ms.");
}

TEST(SocketDev, PeerThatTakesNothingIsGivenUpAfterTheIdleTimeout) {
    tests::fake_clock_t clock;
    const pair_t pair = MakePair({std::chrono::milliseconds(5000), {}});
    std::jthread time([&](const std::stop_token& stop) {
        while (!stop.stop_requested()) {
            clock.Advance(std::chrono::milliseconds(500));
            std::this_thread::yield();
        }
    });
    const std::string sent(8 << 20, 'x');
    EXPECT_EQ(MessageFrom([&] { pair.left->Write(sent.data(), sent.size()); }),
              "Connection with [right] timed out: nothing moved for 5000 ms.");
}

TEST(SocketDev, DeadlineEndsAWaitBeforeTheIdleTimeout) {
    const pair_t pair = MakePair();
    pair.left->SetDeadline(synch::deadline_t::After(std::chrono::milliseconds(1)));
    EXPECT_EQ(MessageFrom([&] { ReadSome(*pair.left, 1); }),
              "Connection with [right] timed out: the deadline has passed.");
}

TEST(SocketDev, StopRequestEndsAWait) {
    std::stop_source source;
    const pair_t pair = MakePair({std::chrono::seconds(100), source.get_token()});
    std::jthread stopper([&] { source.request_stop(); });
    EXPECT_EQ(MessageFrom([&] { ReadSome(*pair.left, 1); }), "Connection with [right] was cancelled.");
}

TEST(SocketDev, ShutdownWakesAThreadThatWaits) {
    const pair_t pair = MakePair();
    std::jthread closer([&] { pair.left->Shutdown(); });
    EXPECT_EQ(ReadSome(*pair.left, 1), "");
}

TEST(SocketDev, OneThreadReadsWhileAnotherWrites) {
    const pair_t pair = MakePair();
    const std::string bytes(1 << 20, 'y');
    const auto pump = [&](socket_dev_t& device) {
        device.Write(bytes.data(), bytes.size());
        device.Flush();
    };
    const auto drain = [&](socket_dev_t& device) {
        std::size_t received = 0;
        while (received < bytes.size()) {
            received += ReadSome(device, 65536).size();
        }
    };
    const std::jthread a([&] { pump(*pair.left); });
    const std::jthread b([&] { pump(*pair.right); });
    const std::jthread c([&] { drain(*pair.left); });
    drain(*pair.right);
}

}  // namespace
}  // namespace io::net
