#include <random>

#include <gmock/gmock.h>

#include "tests/edge/edge_kit.h"
#include "tests/edge/raw_session.h"
#include "tests/support/tree_snapshot.h"

namespace tests {
namespace {

using namespace std::string_literals;
using testing::HasSubstr;
using testing::StartsWith;

constexpr std::uint32_t kOk = 0;
constexpr std::uint32_t kError = 1;

// What honest work may take in memory, also where a sanitizer keeps what was freed.
constexpr std::size_t kRoom = std::size_t{64} << 20;

constexpr const char* kTapePath = "tdatafs:\\\\x|1";

/// Speaks to a child process byte by byte.
class HostileClient : public edge_fixture_t {
  protected:
    HostileClient() {
        WriteFile(Root() + "/kept", "kept");
        canary_ = SnapshotOf(Place("canary"));
    }

    raw_session_t Session() { return raw_session_t(server_.Port()); }

    // Nothing is left of the session, and the next one is served.
    void ExpectUnharmed() {
        EXPECT_TRUE(server_.IsBackAtStart());
        EXPECT_EQ(ViewRoot().staged, 0U);
        EXPECT_EQ(ReadFile(Root() + "/kept"), "kept");
        EXPECT_EQ(SnapshotOf(Place("canary")), canary_);
        raw_session_t session = Session();
        session.SendLast(wire_text_t().U32(9).U32(1).String("kept").U32(2));
        EXPECT_EQ(session.ReceiveAck().kind, kOk);
        EXPECT_EQ(session.ReceiveU32(), 1U);
        EXPECT_EQ(session.ReceiveString(), "kept");
        EXPECT_EQ(server_.WaitSession(), "ended");
    }

    // The root has these names and no others.
    void ExpectNames(std::vector<std::string> names) {
        names.emplace_back("kept");
        std::sort(names.begin(), names.end());
        EXPECT_EQ(ViewRoot().names, names);
    }

    // Paths that no session may use, whichever command has them.
    std::vector<std::string> Attacks() const {
        const std::string canary = Place("canary");
        return {"",
                "/",
                canary + "/file",
                canary + "/new",
                "..",
                "../canary/file",
                "../canary/new",
                "a/../../canary/file",
                "kept/../../canary/file",
                "./../canary/file",
                "a//b",
                "a/",
                "a/./b",
                "a\0b"s,
                "../canary/file\0x"s,
                "MemFs://slot",
                "mEmfS://slot",
                "RelativePath://../canary/file",
                "FlrFS://{0}/x",
                kTapePath,
                "cloudfs://repo/x",
                "file://" + canary + "/file",
                ".tarn-staging/lock",
                ".TARN-staging/new",
                std::string(256, 'n'),
                "a/" + std::string(256, 'n'),
                std::string(4096, 'n')};
    }

    serve_child_t server_{TARN_COMMAND, Root(), {.arguments = {"--log-level", "error"}}};
    std::map<std::string, std::string> canary_;
};

/// Command 1, or 4 with a file info, for a file of so many bytes.
wire_text_t FileMessage(std::uint32_t command, std::string_view path, std::uint64_t size, std::uint32_t incremental = 0,
                        std::uint32_t blockSize = 4096) {
    wire_text_t message;
    message.U32(command).String(path).U64(size).U32(incremental).U32(blockSize);
    return command == 4 ? message.Raw(NoFileInfo()) : message;
}

TEST_F(HostileClient, EveryAttackOnFileCommandsIsRefusedByNameAndTouchesNothing) {
    for (const std::uint32_t command : {1U, 4U}) {
        for (const std::string& path : Attacks()) {
            SCOPED_TRACE(path.substr(0, 60));
            raw_session_t session = Session();
            session.Send(FileMessage(command, path, 5));
            const ack_t first = session.ReceiveAck();
            EXPECT_EQ(first.kind, kError);
            EXPECT_THAT(first.text, HasSubstr("is refused: "));
            EXPECT_EQ(session.ReceiveAck().text, "Unable to receive file.");
            EXPECT_EQ(session.Peer().ReceiveAll(), "");
            EXPECT_THAT(server_.WaitSession(), HasSubstr("is refused: "));
        }
    }
    ExpectNames({});
    ExpectUnharmed();
}

TEST_F(HostileClient, EveryAttackOnLinksIsRefusedByNameAndTouchesNothing) {
    for (const std::string& path : Attacks()) {
        SCOPED_TRACE(path.substr(0, 60));
        raw_session_t session = Session();
        session.Send(wire_text_t().U32(10).String(path).String("kept"));
        const ack_t answer = session.ReceiveAck();
        EXPECT_EQ(answer.kind, kError);
        EXPECT_THAT(answer.text, HasSubstr("is refused: "));
        EXPECT_THAT(server_.WaitSession(), StartsWith("failed: "));
    }
    ExpectNames({});
    ExpectUnharmed();
}

TEST_F(HostileClient, QuestionsAboutPlacesOutsideAreRefusedNotAnswered) {
    for (const std::string& path : Attacks()) {
        SCOPED_TRACE(path.substr(0, 60));
        raw_session_t session = Session();
        session.Send(wire_text_t().U32(9).U32(2).String("kept").String(path));
        const ack_t answer = session.ReceiveAck();
        EXPECT_EQ(answer.kind, kError);
        EXPECT_THAT(answer.text, HasSubstr("is refused: "));
        EXPECT_EQ(session.Peer().ReceiveAll(), "");
        EXPECT_THAT(server_.WaitSession(), HasSubstr("Failed to enumerate existing files."));
    }
    ExpectUnharmed();
}

TEST_F(HostileClient, EveryAttackInsideAnItemsTokenIsRefusedForEachKind) {
    for (const std::uint32_t kind : {1U, 2U, 3U}) {
        for (const std::string& path : Attacks()) {
            if (path == kTapePath) {
                continue;  // here a name like any other: an item's path has no prefixes
            }
            SCOPED_TRACE(testing::Message() << "kind " << kind << ": " << path.substr(0, 60));
            raw_session_t session = Session();
            session.Send(ItemMessage(kind, path, 0, kind == 3 ? "kept" : ""));
            const ack_t answer = session.ReceiveAck();
            EXPECT_EQ(answer.kind, kError);
            EXPECT_THAT(server_.WaitSession(),
                        testing::ContainsRegex("is refused: |Invalid item |Failed to read the token"));
        }
    }
    ExpectNames({});
    ExpectUnharmed();
}

TEST_F(HostileClient, NamesThatAreNotTextAreServed) {
    for (const std::string& path : {"\xff\xfe\x80"s, "tab\tand\nline"s, "..."s, "a:b\\c"s}) {
        raw_session_t session = Session();
        session.SendLast(wire_text_t().U32(10).String(path).String("\xff/to").U32(2));
        EXPECT_EQ(session.ReceiveAck().kind, kOk);
        EXPECT_EQ(server_.WaitSession(), "ended");
    }
    ExpectNames({"...", "a:b\\c", "tab\tand\nline", "\xff\xfe\x80"});
    ExpectUnharmed();
}

TEST_F(HostileClient, UnknownCodesAreLoggedAndSkipped) {
    raw_session_t session = Session();
    wire_text_t message;
    message.U32(0).U32(11).U32(0xFFFFFFFF).U32(9).U32(1).String("kept").U32(1000).U32(2);
    session.SendLast(message);
    EXPECT_EQ(session.ReceiveAck().kind, kOk);
    EXPECT_EQ(session.ReceiveU32(), 1U);
    EXPECT_EQ(session.ReceiveString(), "kept");
    EXPECT_EQ(server_.WaitSession(), "ended");
    const std::string errors = server_.Errors();
    for (const char* const code : {"[0]", "[11]", "[4294967295]", "[1000]"}) {
        EXPECT_THAT(errors, HasSubstr("HandleCmds: invalid command "s + code));
    }
    ExpectUnharmed();
}

TEST_F(HostileClient, A1024thUnknownCodeInARowEndsTheSession) {
    wire_text_t row;
    for (int count = 0; count < 1023; ++count) {
        row.U32(77);
    }
    raw_session_t patient = Session();
    patient.SendLast(wire_text_t().Raw(row.Bytes()).U32(9).U32(0).Raw(row.Bytes()).U32(2));
    EXPECT_EQ(patient.ReceiveAck().kind, kOk);
    EXPECT_EQ(server_.WaitSession(), "ended");
    raw_session_t session = Session();
    session.Send(wire_text_t().Raw(row.Bytes()).U32(77));
    EXPECT_EQ(session.Peer().ReceiveAll(), "");
    EXPECT_THAT(server_.WaitSession(), HasSubstr("[1024] invalid commands were received one after another."));
    ExpectUnharmed();
}

TEST_F(HostileClient, LengthsThatLieAllocateNothing) {
    const std::size_t before = server_.PeakMemory();
    constexpr std::uint32_t kHuge = 0xFFFFFFFF;
    const std::vector<wire_text_t> messages = {
        wire_text_t().U32(1).U32(kHuge),
        wire_text_t().U32(4).String("f").U64(5).U32(0).U32(4096).Raw("tFI1").Zeroes(12).U32(kHuge),
        wire_text_t().U32(5).U32(kHuge),
        wire_text_t().U32(5).String("agent-item").U32(2).U32(1).Zeroes(16).U32(kHuge),
        wire_text_t().U32(5).String("agent-item").U32(2).U32(3).Zeroes(16).String("l").U32(kHuge),
        wire_text_t().U32(9).U32(kHuge),
        wire_text_t().U32(9).U32(1000000).U32(kHuge),
        wire_text_t().U32(10).U32(kHuge),
        wire_text_t().U32(10).String("l").U32(kHuge),
        wire_text_t().U32(3).U32(kHuge),
        wire_text_t().U32(7).U32(kHuge),
        FileMessage(1, "f", 5, 0, kHuge),
        ItemMessage(1, "f", 5, "", 1, kHuge),
        FileMessage(1, "f", ~std::uint64_t{0}),
        ItemMessage(1, "f", ~std::uint64_t{0}),
    };
    for (std::size_t index = 0; index < messages.size(); ++index) {
        SCOPED_TRACE(index);
        raw_session_t session = Session();
        session.SendLast(messages[index]);
        session.Peer().ReceiveAll();
        EXPECT_THAT(server_.WaitSession(), StartsWith("failed: "));
    }
    EXPECT_LT(server_.PeakMemory(), before + kRoom);
    ExpectUnharmed();
}

TEST_F(HostileClient, AFrameOf4GiBAllocatesNothingAndLeavesNoFile) {
    const std::size_t before = server_.PeakMemory();
    for (const int type : {1, 2, 3, 4, 5, 6, 7, 99}) {
        SCOPED_TRACE(type);
        raw_session_t session = Session();
        session.Send(ItemMessage(1, "f", 5));
        ASSERT_EQ(session.ReceiveAck().kind, kOk);
        ASSERT_EQ(session.ReceiveU32(), 0U);
        session.Send(wire_text_t().Raw(NetworkConfiguration()));
        ASSERT_EQ(session.Peer().Receive(16), NetworkConfiguration());
        session.SendLast(wire_text_t()
                             .Raw("TBLK")
                             .U16(static_cast<std::uint16_t>(type))
                             .U16(0)
                             .U32(0xFFFFFFFF)
                             .U32(0xFFFFFFFF)
                             .Zeroes(64));
        session.Peer().ReceiveAll();
        EXPECT_THAT(server_.WaitSession(), HasSubstr("Broken block stream: "));
        ExpectNames({});
    }
    EXPECT_LT(server_.PeakMemory(), before + kRoom);
    ExpectUnharmed();
}

TEST_F(HostileClient, WindowsAndStreamsOutOfReachAreAnsweredWithOneChannel) {
    for (const std::string& proposal :
         {NetworkConfiguration(0xFFFFFFFF, 8), NetworkConfiguration(1, 0xFFFFFFFF), NetworkConfiguration(0, 0)}) {
        raw_session_t session = Session();
        session.Send(ItemMessage(1, "f", 5));
        ASSERT_EQ(session.ReceiveAck().kind, kOk);
        ASSERT_EQ(session.ReceiveU32(), 0U);
        session.SendLast(wire_text_t().Raw(proposal));
        EXPECT_EQ(session.Peer().Receive(16), NetworkConfiguration());
        EXPECT_THAT(server_.WaitSession(), HasSubstr("The far end closed the channel during a transfer."));
    }
    ExpectNames({});
    ExpectUnharmed();
}

TEST_F(HostileClient, MessagesOutOfOrderEndTheSession) {
    // A second command where the network configuration should stand, and where the frames should.
    raw_session_t early = Session();
    early.Send(ItemMessage(1, "f", 5));
    ASSERT_EQ(early.ReceiveAck().kind, kOk);
    ASSERT_EQ(early.ReceiveU32(), 0U);
    early.SendLast(ItemMessage(1, "g", 5));
    EXPECT_THAT(server_.WaitSession(), HasSubstr("Invalid network configuration: it starts with [5]."));

    raw_session_t late = Session();
    late.Send(ItemMessage(1, "f", 5));
    ASSERT_EQ(late.ReceiveAck().kind, kOk);
    ASSERT_EQ(late.ReceiveU32(), 0U);
    late.Send(wire_text_t().Raw(NetworkConfiguration()));
    late.SendLast(ItemMessage(1, "g", 5));
    EXPECT_THAT(server_.WaitSession(), HasSubstr("Broken block stream: a frame starts with [5]."));

    // The dialogue before the preamble.
    raw_peer_t rude(server_.Port());
    rude.Send(ItemMessage(1, "g", 5).Bytes());
    EXPECT_EQ(rude.ReceiveAll(), "");
    EXPECT_THAT(server_.WaitSession(), HasSubstr("The peer does not speak this protocol."));
    ExpectNames({});
    ExpectUnharmed();
}

TEST_F(HostileClient, DisksAreReadAndRefusedWithoutAWord) {
    raw_session_t content = Session();
    content.Send(wire_text_t().U32(3).String("d").String("b").U64(1).U32(4096));
    EXPECT_EQ(content.Peer().ReceiveAll(), "");
    EXPECT_THAT(server_.WaitSession(), HasSubstr("Disks are not supported."));
    raw_session_t cache = Session();
    cache.Send(wire_text_t().U32(7).String("d").String("b").String("c").U64(1).U32(4096));
    EXPECT_EQ(cache.Peer().ReceiveAll(), "");
    EXPECT_THAT(server_.WaitSession(), HasSubstr("Disks are not supported."));
    ExpectNames({});
    ExpectUnharmed();
}

TEST_F(HostileClient, RandomBytesEndTheSessionAndChangeNothing) {
    // Another seed: --gtest_random_seed.
    const auto seed = 20261 + static_cast<std::uint64_t>(GTEST_FLAG_GET(random_seed));
    std::cout << "seed " << seed << "\n";
    std::mt19937_64 engine(seed);
    const std::size_t before = server_.PeakMemory();
    const auto noise = [&engine](std::size_t size) {
        std::string bytes(size, '\0');
        std::generate(bytes.begin(), bytes.end(), [&engine] { return static_cast<char>(engine()); });
        return bytes;
    };
    constexpr std::uint32_t kCommands[] = {1, 3, 4, 5, 6, 7, 8, 9, 10};
    for (int round = 0; round < 300; ++round) {
        SCOPED_TRACE(testing::Message() << "seed " << seed << " round " << round);
        raw_peer_t peer(server_.Port());
        const std::string hello = round % 10 == 0 ? "" : ClientHello();
        const std::string command = wire_text_t().U32(kCommands[engine() % std::size(kCommands)]).Bytes();
        peer.Send(hello + (round % 3 == 0 ? "" : command) + noise(engine() % 3000));
        peer.CloseWrite();
        peer.ReceiveAll();
        EXPECT_THAT(server_.WaitSession(), StartsWith("failed: "));
    }
    EXPECT_LT(server_.PeakMemory(), before + kRoom);
    ExpectNames({});
    ExpectUnharmed();
}

}  // namespace
}  // namespace tests
