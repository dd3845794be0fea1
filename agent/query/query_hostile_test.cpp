#include <gmock/gmock.h>

#include "agent/query/query_client.h"
#include "mirrowen/exc/runtime_exc.h"
#include "tests/edge/scripted_server.h"
#include "tests/support/fake_clock.h"
#include "tests/support/query_fixture.h"

namespace agent::query {
namespace {

using testing::HasSubstr;
using tests::ThrownText;
using tests::wire_text_t;

constexpr std::uint32_t kHuge = 0xFFFFFFFF;

// ---- A client that does not keep to the protocol.

struct bad_request_t {
    const char* name;
    std::string bytes;
    const char* error;
};

class HostileQuery : public tests::query_fixture_t, public testing::WithParamInterface<bad_request_t> {};

TEST_P(HostileQuery, EndsItsOwnSessionWithoutAnAnswer) {
    tests::raw_peer_t peer = Peer();
    peer.Send(GetParam().bytes);
    peer.CloseWrite();
    EXPECT_EQ(peer.ReceiveAll(), "");
    EXPECT_THAT(WaitEnd(), HasSubstr(GetParam().error));
    EXPECT_EQ(Client()->Examine({"x"}).front(), std::nullopt);
    EXPECT_EQ(WaitEnd(), "");
}

std::string Names(std::uint32_t count) {
    wire_text_t text;
    text.U32(3).U32(count);
    for (; count != 0; --count) {
        text.String("n");
    }
    return text.Bytes();
}

INSTANTIATE_TEST_SUITE_P(
    All, HostileQuery,
    testing::Values(
        bad_request_t{"CodeZero", wire_text_t().U32(0).Bytes(), "Unknown question [0]."},
        bad_request_t{"UnknownCode", wire_text_t().U32(11).Bytes(), "Unknown question [11]."},
        bad_request_t{"HugeCode", wire_text_t().U32(kHuge).Bytes(), "Unknown question [4294967295]."},
        bad_request_t{"HalfACode", "\x03", "received less bytes (1) than expected (4)"},
        bad_request_t{"Nothing", "", "received less bytes (0) than expected (4)"},
        bad_request_t{"TooManyNames", Names(513), "Question about [513] names is longer than the allowed [512]."},
        bad_request_t{"4GiNames", wire_text_t().U32(3).U32(kHuge).Bytes(), "Question about [4294967295] names"},
        bad_request_t{"NameTooLong", wire_text_t().U32(8).String(std::string(4096, 'n')).Bytes(),
                      "String of [4096] bytes in the binary stream is longer than the allowed [4095]."},
        bad_request_t{"NameOf4GiB", wire_text_t().U32(5).U32(kHuge).Bytes(), "String of [4294967295] bytes"},
        bad_request_t{"HalfAName", wire_text_t().U32(8).U32(10).Raw("half").Bytes(), "received less bytes"},
        bad_request_t{"OneNameToMove", wire_text_t().U32(10).String("a").Bytes(), "received less bytes"},
        bad_request_t{"Nanoseconds", wire_text_t().U32(7).String("a").U64(1).U64(1).U32(1'000'000'000).Bytes(),
                      "Invalid message: 1000000000 nanoseconds."}),
    [](const auto& param) { return param.param.name; });

class QueryLimits : public tests::query_fixture_t {};

TEST_F(QueryLimits, LongestQuestionIsAnswered) {
    tests::raw_peer_t peer = Peer();
    wire_text_t text;
    text.U32(3).U32(kMaxObjects);
    const std::string name = std::string(4094, 'n') + "/";
    for (std::uint32_t left = kMaxObjects; left != 0; --left) {
        text.String(name);
    }
    peer.Send(text.U32(2).Bytes());
    const std::string answer = peer.ReceiveAll();
    EXPECT_EQ(tests::U32At(answer, 0), 0U);
    EXPECT_EQ(tests::U32At(answer, 4), kMaxObjects);
    EXPECT_EQ(WaitEnd(), "");
}

TEST_F(QueryLimits, SilentSessionEndsAfterTheIdleTime) {
    tests::fake_clock_t clock;
    tests::raw_peer_t peer = Peer();
    clock.WaitForWaiting(1);
    clock.Advance(options_.idleTimeout);
    EXPECT_EQ(peer.ReceiveAll(), "");
    EXPECT_THAT(WaitEnd(), HasSubstr("timed out: nothing moved for 120000 ms."));
}

TEST_F(QueryLimits, QuestionThatTricklesIsGivenUpAlthoughTheLineIsBusy) {
    tests::fake_clock_t clock;
    tests::raw_peer_t peer = Peer();
    peer.Send(wire_text_t().U32(8).U32(4000).Bytes());
    peer.WaitTaken();
    clock.WaitForWaiting(1);                    // for the rest
    for (int bytes = 0; bytes < 12; ++bytes) {  // 20 minutes; a message of 4 MiB has a little less
        clock.Advance(std::chrono::seconds(100));
        peer.Send("n");
        peer.WaitTaken();
    }
    EXPECT_THAT(WaitEnd(), HasSubstr("the deadline has passed"));
}

TEST_F(QueryLimits, SessionsBeyondTheLimitAreRefused) {
    options_.maxSessions = 1;
    const auto client = Client();
    EXPECT_THAT(ThrownText([&] { Client(); }), HasSubstr("Too many sessions."));
    EXPECT_EQ(client->Examine({"x"}).front(), std::nullopt);
}

// ---- A server that does not keep to the protocol.

struct bad_server_t {
    const char* name;
    std::string answer;
    const char* error;
    void (*ask)(query_client_t&);
    bool goesOn = false;  ///< the far end's own failure: the client may ask again
};

void Examine(query_client_t& client) {
    client.Examine({"a", "b"});
}
void List(query_client_t& client) {
    client.List("d");
}
void ReadInfo(query_client_t& client) {
    client.ReadInfo("a");
}
void Digest(query_client_t& client) {
    client.Digest("a");
}
void Remove(query_client_t& client) {
    client.Remove("a");
}

std::string Page(std::initializer_list<std::string> names) {
    wire_text_t text;
    text.U32(0).U32(static_cast<std::uint32_t>(names.size()));
    for (const std::string& name : names) {
        text.String(name).U32(2).String("unknown");
    }
    return text.Bytes();
}

class HostileQueryServer : public testing::TestWithParam<bad_server_t> {};

TEST_P(HostileQueryServer, FailsTheCallAndNothingElse) {
    tests::scripted_server_t server([](tests::raw_peer_t& peer) {
        tests::Grant(peer);
        peer.Receive(8);
        peer.Send(GetParam().answer);
        peer.CloseWrite();
        peer.ReceiveAll();
    });
    {
        query_client_t client({"127.0.0.1", server.Port()}, {});
        EXPECT_THAT(ThrownText([&] { GetParam().ask(client); }), HasSubstr(GetParam().error));
        const std::string again = ThrownText([&] { client.Remove("a"); });
        EXPECT_THAT(again, HasSubstr(GetParam().goesOn ? "received less bytes" : "has broken off."));
    }
    server.Join();
}

INSTANTIATE_TEST_SUITE_P(
    All, HostileQueryServer,
    testing::Values(
        bad_server_t{"Closes", "", "received less bytes (0) than expected (4)", Remove},
        bad_server_t{"UnknownStatus", wire_text_t().U32(4).Bytes(), "Invalid message: answer 4.", Remove},
        bad_server_t{"WorksForNothing", wire_text_t().U32(3).U32(3).Bytes(), "received less bytes", Remove},
        bad_server_t{"RudeText", wire_text_t().U32(1).String("a\x1b[2J\nb\r").Bytes(), "a\\x1b[2J\nb\\", Remove, true},
        bad_server_t{"TextTooLong", wire_text_t().U32(1).String(std::string(8193, 'x')).Bytes(),
                     "String of [8193] bytes", Remove},
        bad_server_t{"TextOf4GiB", wire_text_t().U32(2).U32(kHuge).Bytes(), "String of [4294967295] bytes", Remove},
        bad_server_t{"FewerFindings", wire_text_t().U32(0).U32(1).U32(0).Bytes(),
                     "Invalid message: 1 findings for 2 names.", Examine},
        bad_server_t{"4GiFindings", wire_text_t().U32(0).U32(kHuge).Bytes(), "findings for 2 names", Examine},
        bad_server_t{"UnknownFinding", wire_text_t().U32(0).U32(2).U32(9).Bytes(), "Invalid message: finding 9.",
                     Examine},
        bad_server_t{"FindingTextTooLong", wire_text_t().U32(0).U32(2).U32(2).U32(1025).Bytes(),
                     "String of [1025] bytes", Examine},
        bad_server_t{"PageTooLong", wire_text_t().U32(0).U32(513).Bytes(), "Invalid message: a page of 513 objects.",
                     List},
        bad_server_t{"NameTooLong", wire_text_t().U32(0).U32(1).U32(256).Bytes(), "String of [256] bytes", List},
        bad_server_t{"EmptyName", Page({""}), "[] is no name in a directory", List},
        bad_server_t{"DotDot", Page({".."}), "[..] is no name in a directory", List},
        bad_server_t{"Dot", Page({"."}), "[.] is no name in a directory", List},
        bad_server_t{"Slash", Page({"a/b"}), "[a/b] is no name in a directory", List},
        bad_server_t{"Absolute", Page({"/etc"}), "[/etc] is no name in a directory", List},
        bad_server_t{"Nul", Page({std::string("a\0b", 3)}), "is no name in a directory", List},
        bad_server_t{"NameTwice", Page({"a", "a"}), "[a] is listed out of order", List},
        bad_server_t{"NameTwiceOverPages", Page({"a", "b"}) + Page({"b"}), "[b] is listed out of order", List},
        bad_server_t{"ListedButNotThere", wire_text_t().U32(0).U32(1).String("a").U32(0).Bytes(),
                     "[a] is listed but not there", List},
        bad_server_t{"PageFails", Page({"a"}) + wire_text_t().U32(1).String("disk").Bytes(), "disk", List, true},
        bad_server_t{"ListWithoutEnd", Page({"a"}), "received less bytes", List},
        bad_server_t{"InfoWithoutMagic", wire_text_t().U32(0).Zeroes(200).Bytes(), "Invalid file info", ReadInfo},
        bad_server_t{"HalfADigest", wire_text_t().U32(0).U32(1).U64(3).Zeroes(15).Bytes(), "received less bytes",
                     Digest}),
    [](const auto& param) { return param.param.name; });

TEST(HostileQueryList, ListWithoutBoundsIsGivenUp) {
    tests::scripted_server_t server([](tests::raw_peer_t& peer) {
        tests::Grant(peer);
        peer.Receive(9);
        std::uint32_t next = 1'000'000;
        for (bool open = true; open;) {
            wire_text_t page;
            page.U32(0).U32(kMaxObjects);
            for (std::uint32_t left = kMaxObjects; left != 0; --left) {
                page.String(std::to_string(next++)).U32(2).String("x");
            }
            open = peer.Send(page.Bytes());
        }
    });
    {
        query_client_t client({"127.0.0.1", server.Port()}, {});
        EXPECT_THAT(ThrownText([&] { client.List("d"); }), HasSubstr("[d] has more objects than can be listed."));
    }
    server.Join();
}

TEST(HostileQueryHello, RefusalIsTheFarEndsText) {
    tests::scripted_server_t server([](tests::raw_peer_t& peer) {
        peer.Receive(tests::kClientHelloSize);
        peer.Send(tests::ServerHello(2, "This service is not offered."));
    });
    EXPECT_THAT(ThrownText([&] {
                    query_client_t({"127.0.0.1", server.Port()}, {});
                }),
                HasSubstr("This service is not offered."));
    server.Join();
}

}  // namespace
}  // namespace agent::query
