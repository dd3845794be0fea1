#include <gmock/gmock.h>
#include <unistd.h>

#include <memory>

#include "agent/query/query_client.h"
#include "agent/token/item_token.h"
#include "mirrowen/io/mem_dev.h"
#include "tests/edge/edge_kit.h"
#include "tests/edge/raw_frame.h"
#include "tests/edge/raw_session.h"

namespace tests {
namespace {

constexpr std::uint64_t kSize = std::uint64_t{16} << 20;
constexpr std::size_t kBlock = 4096;

/// Questions to the command as it is installed.
class QueryServe : public edge_fixture_t {
  protected:
    agent::query::query_client_t Client() { return {{"127.0.0.1", server_.Port()}, {}}; }

    /// Sends the first block of a file of kSize bytes, which may be resumed, and goes away.
    void BreakOff(const std::string& block) {
        raw_session_t session(server_.Port());
        session.Send(wire_text_t()
                         .U32(5)
                         .String("agent-item")
                         .Raw(Token())
                         .U64(kSize)
                         .U32(0)
                         .U32(1)
                         .U32(kBlock)
                         .Raw(NetworkConfiguration())
                         .Raw(DataFrame(0, 0, block)));
        EXPECT_EQ(session.ReceiveAck().kind, 0U);
        EXPECT_EQ(session.ReceiveU32(), 0U);
        EXPECT_EQ(session.Peer().Receive(16), NetworkConfiguration());
        ReadFrame(session.Peer(), EFrameType::eCredit);  // the block is written
    }

    serve_child_t server_{TARN_COMMAND, Root()};
    const util::SFileTime time_{1'600'000'000, 123'456'789};

  private:
    std::string Token() const {
        agent::item_t item;
        item.path = "large";
        item.resumable = true;
        item.info.type = util::EFileType::eRegular;
        item.info.size = kSize;
        item.info.modificationTime = time_;
        const auto bytes = std::make_shared<std::string>();
        io::binary_stream_tt stream(std::make_shared<io::mem_dev_tt<std::string>>(bytes));
        agent::item_token_t(item).Serial(stream);
        return *bytes;
    }
};

TEST_F(QueryServe, WhatIsKeptOfABrokenTransferIsToldWithItsDigest) {
    const std::string block(kBlock, 'k');
    BreakOff(block);
    EXPECT_THAT(server_.WaitSession(), testing::StartsWith("failed: "));
    agent::query::query_client_t client = Client();
    const agent::partial_t kept{kBlock, digest::ComputeBlockDigest(std::as_bytes(std::span(block)))};
    EXPECT_EQ(client.FindPartial("large", kSize, time_), kept);
    EXPECT_EQ(client.FindPartial("large", kSize + 1, time_), std::nullopt);
    EXPECT_EQ(client.FindPartial("large", kSize, {time_.seconds, 0}), std::nullopt);
    EXPECT_EQ(client.FindPartial("other", kSize, time_), std::nullopt);
    EXPECT_EQ(client.Examine({"large"}).front(), std::nullopt);
    EXPECT_TRUE(client.List("").empty());
}

TEST_F(QueryServe, WholeTreeIsLookedAtChangedAndGone) {
    agent::query::query_client_t client = Client();
    client.MakeDirectory("a");
    client.MakeDirectory("a/b");
    WriteFile(Root() + "/a/file", "content");
    client.Move("a/file", "a/b/moved", agent::EReplace::eNo);
    EXPECT_EQ(client.List("a").size(), 1U);
    EXPECT_EQ(client.ReadInfo("a/b/moved").size, 7U);
    EXPECT_EQ(client.Digest("a/b/moved")->size, 7U);
    EXPECT_EQ(client.KeepsOwners(), ::geteuid() == 0);
    for (const char* const name : {"a/b/moved", "a/b", "a"}) {
        client.Remove(name);
    }
    EXPECT_TRUE(client.List("").empty());
}

TEST_F(QueryServe, LengthsThatLieTakeNoMemoryAndLeaveNothingBehind) {
    const std::size_t before = server_.PeakMemory();
    for (const wire_text_t& lie :
         {wire_text_t().U32(3).U32(0xFFFFFFFF), wire_text_t().U32(3).U32(512).U32(0xFFFFFFFF),
          wire_text_t().U32(8).U32(0xFFFFFFFF), wire_text_t().U32(10).String("a").U32(0x7FFFFFFF)}) {
        raw_peer_t peer(server_.Port());
        peer.Send(ClientHello(3) + lie.Bytes());
        EXPECT_EQ(peer.Receive(kServerHelloSize).size(), kServerHelloSize);
        EXPECT_EQ(peer.ReceiveAll(), "");
        EXPECT_THAT(server_.WaitSession(), testing::StartsWith("failed: "));
    }
    EXPECT_TRUE(server_.IsBackAtStart());
    EXPECT_LT(server_.PeakMemory(), before + (std::size_t{64} << 20));
    EXPECT_EQ(Client().Examine({"x"}).front(), std::nullopt);
}

}  // namespace
}  // namespace tests
