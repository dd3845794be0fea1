#include <gmock/gmock.h>

#include <atomic>
#include <condition_variable>
#include <future>
#include <mutex>

#include "agent/serve/serve.h"
#include "mirrowen/posix/syscalls.h"
#include "tests/edge/edge_kit.h"
#include "tests/edge/raw_frame.h"
#include "tests/edge/scripted_server.h"
#include "tests/support/fake_clock.h"
#include "tests/support/fault_proxy.h"
#include "tests/support/transfer_kit.h"

namespace tests {
namespace {

using namespace std::chrono_literals;
using testing::ContainsRegex;
using testing::HasSubstr;

constexpr std::size_t kBlock = 4096;

constexpr const char* kDeadline = "timed out: the deadline has passed\\.";
constexpr const char* kIdle = "timed out: nothing moved for 120000 ms\\.";
// The transfer and its socket count the same time; either may be the first to say so.
constexpr const char* kSilent =
    "The far end of the transfer has been silent for .120000. ms\\.|timed out: nothing moved for 120000 ms\\.";
constexpr const char* kSlow = "The far end of the transfer is slower than .4096. bytes a second\\.";

/// Waits that only a clock in the test's hands brings to their end.
class Stall : public edge_fixture_t {
  protected:
    Stall() {
        options_.overwrite = options_.force = true;  // no question before the item
        options_.blockSize = kBlock;
        options_.compression = io::block::EBufTransformType::eNone;
    }

    // Lets `most` pass, in steps and only as long as the work is not done; a limit within that time ends it.
    template <class Result>
    Result PassTimeUntil(std::future<Result>& work, std::chrono::seconds most) {
        for (auto left = most; left > 0s && work.wait_for(20ms) != std::future_status::ready; left -= 5s) {
            clock_.Advance(5s);
        }
        EXPECT_EQ(work.wait_for(kPatience), std::future_status::ready) << "no limit ends this wait";
        return work.get();
    }

    std::future<copy_outcome_t> StartCopy(std::uint16_t port) {
        return std::async(std::launch::async,
                          [this, port] { return CopyAll({Source("thing")}, Remote(port, "out"), options_); });
    }

    fake_clock_t clock_;
    agent::copy::copy_options_t options_;
};

// Runs a copy to a server that follows a script; it holds the connection until the copy has ended, which the test's
// clock brings about.
class StalledSender : public Stall {
  protected:
    // When the script has ended so many threads of the copy wait, and none of them for longer than `most`.
    copy_outcome_t CopyTo(const std::string& content, std::size_t waiting, scripted_server_t::script_t script,
                          std::chrono::seconds most = 240s) {
        WriteFile(Source("thing"), content);
        std::promise<void> stalled;
        std::promise<void> ended;
        scripted_server_t server([&](raw_peer_t& peer) {
            script(peer);
            stalled.set_value();
            ended.get_future().wait();
        });
        auto copy = StartCopy(server.Port());
        EXPECT_EQ(stalled.get_future().wait_for(kPatience), std::future_status::ready);
        clock_.WaitForWaiting(waiting);
        EXPECT_NE(copy.wait_for(0s), std::future_status::ready) << "it did not wait";
        copy_outcome_t outcome = PassTimeUntil(copy, most);
        ended.set_value();
        server.Join();
        return outcome;
    }
};

TEST_F(StalledSender, ServerWithoutAPreambleIsGivenUpAfterTheTimeForConnecting) {
    const copy_outcome_t outcome = CopyTo(
        "x", 1, [](raw_peer_t& peer) { peer.Receive(kClientHelloSize); }, 60s);
    EXPECT_THAT(outcome.thrown, HasSubstr("Failed to open a session with [127.0.0.1:"));
    EXPECT_THAT(outcome.thrown, ContainsRegex(kDeadline));
}

TEST_F(StalledSender, ServerWithoutAnAnswerIsGivenUpAfterTheIdleTime) {
    const copy_outcome_t outcome = CopyTo("x", 1, [](raw_peer_t& peer) {
        Grant(peer);
        ReadQuestion(peer);
    });
    EXPECT_THAT(outcome.thrown, ContainsRegex(kIdle));
}

TEST_F(StalledSender, ServerWithoutAnAnswerToTheItemIsGivenUpAfterTheIdleTime) {
    const copy_outcome_t outcome = CopyTo("x", 1, [](raw_peer_t& peer) {
        Grant(peer);
        AnswerQuestion(peer);
        ReadItem(peer);
    });
    ASSERT_EQ(outcome.report.failed.size(), 1U);
    EXPECT_EQ(outcome.report.failed.front().path, Source("thing"));
    EXPECT_THAT(outcome.Failure(), ContainsRegex(kIdle));
}

TEST_F(StalledSender, ReceiverThatNeverSaysHowItEndedIsGivenUpAfterTheIdleTime) {
    const copy_outcome_t outcome = CopyTo("x", 2, [](raw_peer_t& peer) {
        BeginItem(peer);
        ReadFrame(peer, EFrameType::eEnd);
    });
    ASSERT_EQ(outcome.report.failed.size(), 1U);
    EXPECT_EQ(outcome.report.failed.front().path, Source("thing"));
    EXPECT_THAT(outcome.Failure(), ContainsRegex(kSilent));
}

TEST_F(StalledSender, WithoutCreditNotABlockMoreThanTheWindowIsSent) {
    std::vector<std::uint64_t> blocks;
    const copy_outcome_t outcome = CopyTo(Noise(20 * kBlock), 2, [&](raw_peer_t& peer) {
        BeginItem(peer);
        const auto note = [&](const frame_header_t& header) {
            if (header.type == EFrameType::eData) {
                blocks.push_back(header.block);
            }
            return header.type == EFrameType::eBusy;
        };
        while (blocks.size() < 8) {
            note(ReadFrame(peer));
        }
        // The next frame is a sign of life: it comes when nothing else does.
        clock_.Advance(6s);
        EXPECT_TRUE(note(ReadFrame(peer)));
        peer.Send(Frame({.type = EFrameType::eCredit, .block = 9}));
        while (blocks.size() < 9) {
            note(ReadFrame(peer));
        }
        clock_.Advance(6s);
        EXPECT_TRUE(note(ReadFrame(peer)));
    });
    EXPECT_THAT(blocks, testing::ElementsAre(0, 1, 2, 3, 4, 5, 6, 7, 8));
    ASSERT_EQ(outcome.report.failed.size(), 1U);
    EXPECT_THAT(outcome.Failure(), ContainsRegex(kSilent));
}

TEST_F(StalledSender, FrameThatTricklesIsGivenUpForItsRate) {
    const auto trickle = [this](raw_peer_t& peer) {
        BeginItem(peer);
        ReadFrame(peer, EFrameType::eEnd);
        const std::string status =
            StatusFrame({brannock::transmission::EItemResult::eFailed, std::string(8000, 'x'), {}});
        peer.Send(status.substr(0, 90));
        peer.WaitTaken();
        clock_.WaitForWaiting(2);  // for the rest of the frame
        // A byte now and then: never silent for 120 seconds, and far below the rate.
        for (std::size_t at = 90; at < 92; ++at) {
            clock_.Advance(50s);
            peer.Send(status.substr(at, 1));
            peer.WaitTaken();
        }
    };
    const copy_outcome_t outcome = CopyTo("x", 2, trickle, 60s);  // 100 have passed
    ASSERT_EQ(outcome.report.failed.size(), 1U);
    EXPECT_THAT(outcome.Failure(), ContainsRegex(kSlow));
}

/// One server for all tests of the program: a process has at most one.
class StalledReceiver : public Stall {
  protected:
    static void SetUpTestSuite() { s_running = std::make_unique<running_t>(); }
    static void TearDownTestSuite() { s_running.reset(); }

    static std::uint16_t Port() { return s_running->server.GetEndpoint().port; }
    static std::string ServedRoot() { return s_running->root.path(); }
    static std::future<std::string> StartWait() {
        return std::async(std::launch::async, [] { return s_running->WaitReport(); });
    }

    // A session whose item of so many bytes has been opened, up to its frames.
    raw_session_t OpenItem(std::uint64_t size) {
        raw_session_t session(Port());
        session.Send(ItemMessage(1, "item", size));
        EXPECT_EQ(session.ReceiveAck().kind, 0U);
        EXPECT_EQ(session.ReceiveU32(), 0U);
        session.Send(wire_text_t().Raw(NetworkConfiguration()));
        EXPECT_EQ(session.Peer().Receive(16), NetworkConfiguration());
        EXPECT_EQ(root_view_t(ServedRoot()).staged, 1U);
        return session;
    }

    // The session, of which so many threads wait, ends of itself with this text, neither before its time nor much
    // later, and leaves nothing.
    void ExpectGivenUp(raw_peer_t& peer, const std::string& text, std::size_t waiting,
                       std::chrono::seconds after = 120s) {
        peer.WaitTaken();
        clock_.WaitForWaiting(waiting);
        const auto begin = clock_.SteadyNow();
        auto report = StartWait();
        EXPECT_THAT(PassTimeUntil(report, after + 60s), ContainsRegex(text));
        EXPECT_GE(clock_.SteadyNow() - begin, after);
        peer.ReceiveAll();
        const root_view_t view(ServedRoot());
        EXPECT_EQ(view.names.size(), 0U);
        EXPECT_EQ(view.staged, 0U);
    }

  private:
    struct running_t {
        running_t() : server(Options()), thread([this](const std::stop_token& stop) { server.Run(stop); }) {}

        agent::serve::serve_options_t Options() {
            agent::serve::serve_options_t options;
            options.endpoint = {"127.0.0.1", 0};
            options.root = root.path();
            options.confinement = agent::serve::EConfinement::eNone;  // the test is in the same process
            options.onSessionEnd = [this](const agent::net::session_report_t& report) {
                const std::scoped_lock lock(mutex);
                reports.push_back(report.error);
                changed.notify_all();
            };
            return options;
        }
        std::string WaitReport() {
            std::unique_lock lock(mutex);
            if (!changed.wait_for(lock, kPatience, [this] { return !reports.empty(); })) {
                return "no session has ended";
            }
            const std::string report = reports.front();
            reports.erase(reports.begin());
            return report;
        }

        temp_dir_t root;
        std::mutex mutex;
        std::condition_variable changed;
        std::vector<std::string> reports;
        agent::serve::server_t server;
        std::jthread thread;
    };

    static inline std::unique_ptr<running_t> s_running;
};

TEST_F(StalledReceiver, ClientWithoutAPreambleIsGivenUp) {
    raw_peer_t peer(Port());
    peer.Send("TARN");
    ExpectGivenUp(peer, kDeadline, 1, 10s);
}

TEST_F(StalledReceiver, ClientWithoutACommandIsGivenUpAfterTheIdleTime) {
    raw_session_t session(Port());
    ExpectGivenUp(session.Peer(), kIdle, 1);
}

TEST_F(StalledReceiver, HalfACommandIsGivenUpAfterTheIdleTime) {
    raw_session_t session(Port());
    const std::string message = ItemMessage(1, "item", 5).Bytes();
    session.Send(wire_text_t().Raw(message.substr(0, 50)));
    ExpectGivenUp(session.Peer(), kIdle, 1);
}

TEST_F(StalledReceiver, ClientWithoutFramesIsGivenUpAndItsFileIsGone) {
    raw_session_t session = OpenItem(2 * kBlock);
    ExpectGivenUp(session.Peer(), kSilent, 2);
}

TEST_F(StalledReceiver, ClientThatStopsBetweenBlocksIsGivenUpAndItsFileIsGone) {
    raw_session_t session = OpenItem(2 * kBlock);
    session.Peer().Send(DataFrame(0, 0, std::string(kBlock, 'a')));
    EXPECT_EQ(ReadFrame(session.Peer(), EFrameType::eCredit).block, 9U);
    ExpectGivenUp(session.Peer(), kSilent, 2);
}

TEST_F(StalledReceiver, ClientThatStopsInsideABlockIsGivenUpAndItsFileIsGone) {
    raw_session_t session = OpenItem(2 * kBlock);
    session.Peer().Send(DataFrame(0, 0, std::string(kBlock, 'a')).substr(0, 1000));
    ExpectGivenUp(session.Peer(), kSilent, 2);
}

TEST_F(StalledReceiver, BlockThatTricklesIsGivenUpForItsRate) {
    raw_session_t session = OpenItem(2 * kBlock);
    const std::string frame = DataFrame(0, 0, std::string(kBlock, 'a'));
    session.Peer().Send(frame.substr(0, 100));
    session.Peer().WaitTaken();
    clock_.WaitForWaiting(2);  // for the rest of the block
    for (std::size_t at = 100; at < 102; ++at) {
        clock_.Advance(50s);
        session.Peer().Send(frame.substr(at, 1));
        session.Peer().WaitTaken();
    }
    ExpectGivenUp(session.Peer(), kSlow, 2, 20s);  // 100 have passed
}

TEST_F(StalledReceiver, SignsOfLifeKeepASlowClientAlive) {
    raw_session_t session = OpenItem(5);
    for (int beat = 0; beat < 10; ++beat) {
        session.Peer().Send(Frame({.type = EFrameType::eBusy}));
        session.Peer().WaitTaken();
        clock_.Advance(50s);
    }
    session.Peer().Send(DataFrame(0, 0, "hello"));
    EXPECT_EQ(ReadFrame(session.Peer(), EFrameType::eCredit).block, 9U);
    ExpectGivenUp(session.Peer(), kSilent, 2);
}

/// A disk that does not answer until the test lets it: the reads, or the writes, of files wait.
class slow_disk_t {
  public:
    enum class ECall { eRead, eWrite };

    explicit slow_disk_t(ECall call) {
        s_open = false;
        s_waiting = false;
        if (call == ECall::eRead) {
            table_.pread = [](int fd, void* buffer, std::size_t count, off_t offset) {
                Wait();
                return posix::real_syscalls().pread(fd, buffer, count, offset);
            };
        } else {
            table_.write = [](int fd, const void* buffer, std::size_t count) {
                Wait();
                return posix::real_syscalls().write(fd, buffer, count);
            };
        }
    }

    static bool IsWaitedFor() { return s_waiting; }
    static void Release() {
        s_open = true;
        s_open.notify_all();
    }

  private:
    static void Wait() {
        s_waiting = true;
        s_open.wait(false);
    }

    static inline std::atomic<bool> s_open;
    static inline std::atomic<bool> s_waiting;

    posix::syscalls_t table_ = posix::real_syscalls();
    posix::scoped_syscalls_t inForce_{table_};
};

/// Both ends are alive, and one waits for its disk much longer than the idle time.
class SlowDisk : public StalledReceiver {
  protected:
    void CopyWith(slow_disk_t::ECall call, EWay signs) {
        WriteFile(Source("thing"), "hello");
        fault_proxy_t proxy(Port());
        slow_disk_t disk(call);
        auto copy = StartCopy(proxy.Port());
        EXPECT_TRUE(Until([] { return slow_disk_t::IsWaitedFor(); }));
        for (int beat = 0; beat < 5 && !HasFailure(); ++beat) {
            PassTime(proxy, signs);
        }
        slow_disk_t::Release();
        const copy_outcome_t outcome = copy.get();
        EXPECT_EQ(outcome.Failure(), "");
        EXPECT_EQ(StartWait().get(), "");
        EXPECT_EQ(ReadFile(ServedRoot() + "/out"), "hello");
        std::filesystem::remove(ServedRoot() + "/out");
    }

  private:
    // Whoever waits hears a sign of life. It takes a sign off its socket when it has noted the one before, so it is
    // never more than two steps behind.
    void PassTime(const fault_proxy_t& proxy, EWay signs) {
        const std::size_t before = proxy.Passed(signs).size();
        clock_.Advance(50s);
        EXPECT_TRUE(Until([&] { return proxy.Passed(signs).size() > before; })) << "no sign of life";
        proxy.WaitTaken(signs);
    }

    static bool Until(const std::function<bool()>& isSo) {
        const auto end = std::chrono::steady_clock::now() + kPatience;
        while (!isSo()) {
            if (std::chrono::steady_clock::now() > end) {
                return false;
            }
            std::this_thread::yield();
        }
        return true;
    }
};

TEST_F(SlowDisk, OfTheReceiverDoesNotEndTheTransfer) {
    CopyWith(slow_disk_t::ECall::eWrite, EWay::eBack);
}

TEST_F(SlowDisk, OfTheSenderDoesNotEndTheTransfer) {
    CopyWith(slow_disk_t::ECall::eRead, EWay::eThere);
}

}  // namespace
}  // namespace tests
