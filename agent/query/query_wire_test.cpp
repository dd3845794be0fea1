#include "agent/query/query_wire.h"

#include <gtest/gtest.h>

#include <memory>

#include "agent/query/query_client.h"
#include "mirrowen/io/mem_dev.h"
#include "tests/edge/scripted_server.h"
#include "tests/support/format_example.h"
#include "tests/support/query_fixture.h"

namespace agent::query {
namespace {

using tests::ThrownText;

std::string Example(const std::string& section) {
    return tests::FormatExample(section, "docs/protocol.md");
}

template <class Write>
std::string Written(const Write& write) {
    const auto bytes = std::make_shared<std::string>();
    io::binary_stream_tt stream(std::make_shared<io::mem_dev_tt<std::string>>(bytes));
    write(stream);
    return *bytes;
}

template <class Read>
auto ReadFrom(const std::string& bytes, const Read& read) {
    io::binary_stream_tt stream(std::make_shared<io::mem_dev_tt<std::string>>(std::make_shared<std::string>(bytes)));
    return read(stream);
}

const object_brief_t kAnnsLink{
    EEntryKind::eLink, 0777, 4, {-1, 999999999}, {"ann", 1000}, {"staff", 50}, 2049, 77, 1, "../a"};

const digest::block_digest_t kDigestOfAbc = [] {
    const std::string text = "abc";
    return digest::ComputeBlockDigest(std::as_bytes(std::span(text)));
}();

TEST(QueryWire, FindingIsThatOfTheDocument) {
    const finding_t finding{kAnnsLink, ""};
    EXPECT_EQ(Written([&](auto& stream) { WriteFinding(stream, finding); }), Example("Findings"));
    EXPECT_EQ(ReadFrom(Example("Findings"), ReadFinding), finding);
}

TEST(QueryWire, EveryKindOfObjectComesBack) {
    for (const EEntryKind kind : {EEntryKind::eFile, EEntryKind::eDirectory, EEntryKind::eLink, EEntryKind::eFifo,
                                  EEntryKind::eSocket, EEntryKind::eDevice}) {
        object_brief_t brief;
        brief.kind = kind;
        brief.mode = 07777;
        brief.size = ~std::uint64_t{0};
        const finding_t finding{brief, ""};
        EXPECT_EQ(ReadFrom(Written([&](auto& stream) { WriteFinding(stream, finding); }), ReadFinding), finding);
    }
    EXPECT_EQ(ReadFrom(Written([](auto& stream) { WriteFinding(stream, {}); }), ReadFinding), finding_t{});
}

TEST(QueryWire, TextOfAFaultIsCutAndShownWithoutControls) {
    const finding_t longFault{std::nullopt, std::string(5000, 'x')};
    EXPECT_EQ(ReadFrom(Written([&](auto& stream) { WriteFinding(stream, longFault); }), ReadFinding).fault,
              std::string(kMaxObjectText, 'x'));
    const finding_t rude{std::nullopt, "a\x1b[2J"};
    EXPECT_EQ(ReadFrom(Written([&](auto& stream) { WriteFinding(stream, rude); }), ReadFinding).fault, "a\\x1b[2J");
}

// Where the parts of a finding begin in the example of the document.
struct damage_t {
    const char* name;
    std::size_t at;
    std::string bytes;
    const char* error;
};

class DamagedFinding : public testing::TestWithParam<damage_t> {};

TEST_P(DamagedFinding, IsRefused) {
    std::string bytes = Example("Findings");
    bytes.replace(GetParam().at, GetParam().bytes.size(), GetParam().bytes);
    EXPECT_EQ(ThrownText([&] { ReadFrom(bytes, ReadFinding); }).find(GetParam().error), 0U)
        << ThrownText([&] { ReadFrom(bytes, ReadFinding); });
}

std::string Number(std::uint32_t value) {
    return tests::wire_text_t().U32(value).Bytes();
}

INSTANTIATE_TEST_SUITE_P(
    All, DamagedFinding,
    testing::Values(damage_t{"Finding", 0, Number(3), "Invalid message: finding 3."},
                    damage_t{"NoKind", 4, Number(0), "Invalid message: kind 0."},
                    damage_t{"KindOutOfRange", 4, Number(7), "Invalid message: kind 7."},
                    damage_t{"TargetOfAFile", 4, Number(1), "Invalid message: a target that its object cannot have."},
                    damage_t{"Mode", 8, Number(010000), "Invalid message: mode 4096."},
                    damage_t{"Nanoseconds", 28, Number(1'000'000'000), "Invalid message: 1000000000 nanoseconds."},
                    damage_t{"OwnerTooLong", 32, Number(257), "String of [257] bytes"},
                    damage_t{"OwnerOf4GiB", 32, Number(0xFFFFFFFF), "String of [4294967295] bytes"},
                    damage_t{"TargetTooLong", 80, Number(4096), "String of [4096] bytes"},
                    damage_t{"TargetWithNul", 84, std::string(1, '\0'), "Invalid message: a target"}),
    [](const auto& param) { return param.param.name; });

/// A request of the document: what is asked, how a client asks it, and what the client makes of the answer.
struct request_t {
    const char* name;
    const char* section;
    question_t question;
    std::function<std::string(query_client_t&)> ask;
    std::string result;
};

std::string Hex(const digest::block_digest_t& digest) {
    return digest == kDigestOfAbc ? "of abc" : "another";
}

std::vector<request_t> Requests() {
    return {
        {"Abilities",
         "Query: abilities",
         {.query = EQuery::eAbout},
         [](auto& client) { return std::string(client.KeepsOwners() ? "any" : "none"); },
         "any"},
        {"Examine",
         "Query: what is there",
         {.query = EQuery::eExamine, .names = {"a", "../b"}},
         [](auto& client) { return ThrownText([&] {
                                client.Examine({"a", "../b"});
                            }); },
         "Path [../b] is refused: it has a component \"..\"."},
        {"List",
         "Query: list",
         {.query = EQuery::eList, .names = {"d"}},
         [](auto& client) {
             std::string text;
             for (const listed_object_t& object : client.List("d")) {
                 text += object.name + ":" + object.fault + " ";
             }
             return text;
         },
         "a:no b:no "},
        {"Attributes",
         "Query: attributes",
         {.query = EQuery::eReadInfo, .names = {"a"}},
         [](auto& client) { return std::to_string(client.ReadInfo("a").mode); },
         "420"},
        {"Digest",
         "Query: digest",
         {.query = EQuery::eDigest, .names = {"a"}},
         [](auto& client) {
             const auto found = client.Digest("a");
             return std::to_string(found->size) + " bytes " + Hex(found->digest);
         },
         "3 bytes of abc"},
        {"Kept",
         "Query: what is kept",
         {.query = EQuery::eFindPartial, .names = {"a"}, .size = 9, .time = {1, 2}},
         [](auto& client) {
             const auto found = client.FindPartial("a", 9, {1, 2});
             return std::to_string(found->length) + " bytes " + Hex(found->digest);
         },
         "3 bytes of abc"},
        {"Remove",
         "Query: remove",
         {.query = EQuery::eRemove, .names = {"a"}},
         [](auto& client) { return ThrownText([&] { client.Remove("a"); }); },
         ""},
        {"MakeDirectory",
         "Query: make a directory",
         {.query = EQuery::eMakeDirectory, .names = {"a"}},
         [](auto& client) { return ThrownText([&] { client.MakeDirectory("a"); }); },
         "[a] exists already."},
        {"Move",
         "Query: move",
         {.query = EQuery::eMove, .names = {"a", "b"}, .replace = true},
         [](auto& client) { return ThrownText([&] { client.Move("a", "b", EReplace::eYes); }); },
         ""},
    };
}

class QueryRequest : public testing::TestWithParam<request_t> {
  protected:
    std::string Question() const {
        return Written([](auto& stream) { WriteQuestion(stream, GetParam().question); });
    }
    std::string Answer() const { return Example(GetParam().section).substr(Question().size()); }
};

TEST_P(QueryRequest, IsThatOfTheDocument) {
    EXPECT_EQ(Example(GetParam().section).substr(0, Question().size()), Question());
    const question_t read =
        ReadFrom(Question(), [](auto& stream) { return ReadQuestion(stream, static_cast<EQuery>(stream.ReadU32())); });
    EXPECT_EQ(read, GetParam().question);
}

TEST_P(QueryRequest, AnswerOfTheDocumentIsUnderstoodByTheClient) {
    std::string asked;
    tests::scripted_server_t server([&](tests::raw_peer_t& peer) {
        tests::Grant(peer);
        asked = peer.Receive(Question().size());
        peer.Send(Number(3) + Answer());
        EXPECT_EQ(peer.ReceiveAll(), Example("Query service"));
    });
    {
        query_client_t client({"127.0.0.1", server.Port()}, {});
        EXPECT_EQ(GetParam().ask(client), GetParam().result);
    }
    server.Join();
    EXPECT_EQ(asked, Question());
}

INSTANTIATE_TEST_SUITE_P(All, QueryRequest, testing::ValuesIn(Requests()),
                         [](const auto& param) { return param.param.name; });

class AnsweredQuery : public tests::query_fixture_t {
  protected:
    void ExpectExample(const std::string& section, const question_t& question) {
        const std::string asked = Written([&](auto& stream) { WriteQuestion(stream, question); });
        tests::raw_peer_t peer = Peer();
        peer.Send(asked);
        const std::string answer = Example(section).substr(asked.size());
        EXPECT_EQ(peer.Receive(answer.size()), answer) << section;
        peer.Send(Example("Query service"));
        EXPECT_EQ(peer.ReceiveAll(), "") << section;
        EXPECT_EQ(WaitEnd(), "") << section;
    }
};

TEST_F(AnsweredQuery, ServerAnswersAsTheDocumentSays) {
    host_.keepsOwners = true;
    host_.findPartial = [](auto&&...) { return std::optional(partial_t{3, kDigestOfAbc}); };
    tests::WriteFile(At("a"), "abc");
    for (const request_t& request : Requests()) {
        const std::string name = request.name;
        if (name == "Digest" || name == "Kept" || name == "Abilities" || name == "MakeDirectory" || name == "Move") {
            ExpectExample(request.section, request.question);
        }
    }
    ExpectExample("Query: what is there", Requests()[1].question);  // "a" has been moved away
    tests::WriteFile(At("a"), "");
    ExpectExample("Query: remove", Requests()[6].question);
    EXPECT_FALSE(std::filesystem::exists(At("a")));
    EXPECT_EQ(tests::ReadFile(At("b")), "abc");
}

}  // namespace
}  // namespace agent::query
