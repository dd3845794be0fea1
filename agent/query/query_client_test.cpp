#include "agent/query/query_client.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <latch>

#include "agent/meta/item_meta.h"
#include "mirrowen/exc/already_exists_exc.h"
#include "mirrowen/exc/runtime_exc.h"
#include "tests/edge/scripted_server.h"
#include "tests/support/fake_clock.h"
#include "tests/support/query_fixture.h"

namespace agent::query {
namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;
using testing::HasSubstr;
using tests::ThrownText;

class Query : public tests::query_fixture_t {
  protected:
    Query() {
        fs::create_directories(At("dir/empty"));
        tests::WriteFile(At("file"), "text");
        fs::create_symlink("../canary/file", At("link"));
        fs::create_directory_symlink("dir", At("dirlink"));
        fs::create_directory_symlink("../canary", At("way-out"));
    }

    bool IsThere(const std::string& name) const { return fs::exists(fs::symlink_status(At(name))); }
};

// Names that nobody may use, whatever is asked.
const std::vector<std::string>& BadNames() {
    static const std::vector<std::string> names = {
        "/",    "/etc",  "..",       "../canary/file",     "dir/../../canary/file", "dir//empty",
        "dir/", "./dir", "file\0x"s, ".tarn-staging/lock", ".TARN-STAGING",         std::string(256, 'n')};
    return names;
}

TEST_F(Query, ExamineTellsWhatEachNameIsInTheOrderOfTheQuestion) {
    const auto client = Client();
    const auto found = client->Examine({"missing", "file", "link", "dir/empty", "", "file/below", "way-out/file"});
    ASSERT_EQ(found.size(), 7U);
    EXPECT_EQ(found[0], std::nullopt);
    EXPECT_EQ(found[1], agent::Examine(*host_.root, "file"));
    EXPECT_EQ(found[1]->size, 4U);
    EXPECT_EQ(found[2], agent::Examine(*host_.root, "link"));
    EXPECT_EQ(found[2]->target, "../canary/file");
    EXPECT_EQ(found[3]->kind, EEntryKind::eDirectory);
    EXPECT_EQ(found[4], agent::Examine(*host_.root, ""));
    EXPECT_EQ(found[5], std::nullopt);
    EXPECT_EQ(found[6], std::nullopt);
}

TEST_F(Query, ExamineOfMoreNamesThanARequestTakesAnswersEachOfThem) {
    std::vector<std::string> names;
    for (std::size_t i = 0; i < 2 * kMaxObjects + 7; ++i) {
        names.push_back("n" + std::to_string(i));
        if (i % 3 == 0) {
            tests::WriteFile(At(names.back()), std::string(i, 'x'));
        }
    }
    const auto client = Client();
    const auto found = client->Examine(names);
    ASSERT_EQ(found.size(), names.size());
    for (std::size_t i = 0; i < names.size(); ++i) {
        ASSERT_EQ(found[i].has_value(), i % 3 == 0) << i;
        ASSERT_TRUE(!found[i] || found[i]->size == i) << i;
    }
    EXPECT_TRUE(client->Examine({}).empty());
}

TEST_F(Query, NameThatIsRefusedFailsTheRequestAndTheSessionGoesOn) {
    const auto client = Client();
    for (const std::string& name : BadNames()) {
        SCOPED_TRACE(name.substr(0, 40));
        EXPECT_THAT(ThrownText([&] { client->Examine({"file", name}); }), HasSubstr("is refused: "));
        EXPECT_THAT(ThrownText([&] { client->List(name); }), HasSubstr("is refused: "));
        EXPECT_THAT(ThrownText([&] { client->ReadInfo(name); }), HasSubstr("is refused: "));
        EXPECT_THAT(ThrownText([&] { client->Digest(name); }), HasSubstr("is refused: "));
        EXPECT_THAT(ThrownText([&] { client->FindPartial(name, 1, {}); }), HasSubstr("is refused: "));
        EXPECT_THAT(ThrownText([&] { client->Remove(name); }), HasSubstr("is refused: "));
        EXPECT_THAT(ThrownText([&] { client->MakeDirectory(name); }), HasSubstr("is refused: "));
        EXPECT_THAT(ThrownText([&] { client->Move(name, "new", EReplace::eYes); }), HasSubstr("is refused: "));
        EXPECT_THAT(ThrownText([&] { client->Move("file", name, EReplace::eYes); }), HasSubstr("is refused: "));
    }
    for (const auto change : {&query_client_t::Remove, &query_client_t::MakeDirectory}) {
        EXPECT_THAT(ThrownText([&] { ((*client).*change)(""); }), HasSubstr("is refused: it is empty"));
    }
    EXPECT_TRUE(client->Examine({"file"}).front().has_value());
    EXPECT_EQ(tests::ReadFile(Place("canary/file")), "canary");
}

TEST_F(Query, NameTooLongForTheWireIsRefusedHere) {
    const auto client = Client();
    EXPECT_THAT(ThrownText([&] { client->Remove(std::string(5000, 'n')); }),
                HasSubstr("is refused: it has more than 4095 bytes."));
    EXPECT_TRUE(client->Examine({"file"}).front().has_value());
}

TEST_F(Query, NoLinkIsFollowedByAnything) {
    const auto client = Client();
    EXPECT_NE(ThrownText([&] { client->List("way-out"); }), "");
    EXPECT_NE(ThrownText([&] { client->List("dirlink"); }), "");
    EXPECT_NE(ThrownText([&] { client->ReadInfo("way-out/file"); }), "");
    EXPECT_EQ(client->Digest("link"), std::nullopt);
    EXPECT_EQ(client->Digest("way-out/file"), std::nullopt);
    EXPECT_THAT(ThrownText([&] { client->Remove("way-out/file"); }), HasSubstr("[way-out/file]"));
    EXPECT_THAT(ThrownText([&] { client->MakeDirectory("way-out/new"); }), HasSubstr("[way-out/new]"));
    EXPECT_THAT(ThrownText([&] { client->Move("file", "way-out/new", EReplace::eYes); }), HasSubstr("[way-out/new]"));
    EXPECT_THAT(ThrownText([&] { client->Move("way-out/file", "new", EReplace::eYes); }), HasSubstr("[way-out/file]"));
    EXPECT_EQ(tests::ReadFile(Place("canary/file")), "canary");
    EXPECT_TRUE(IsThere("file"));
}

TEST_F(Query, ListIsInByteOrderWithWhatEachObjectIs) {
    for (const char* const name : {"dir/\xff", "dir/B", "dir/a\nb", "dir/a"}) {
        tests::WriteFile(At(name), name);
    }
    const auto client = Client();
    const auto listed = client->List("dir");
    std::vector<std::string> names;
    for (const listed_object_t& object : listed) {
        names.push_back(object.name);
        EXPECT_EQ(object.brief, agent::Examine(*host_.root, "dir/" + object.name));
        EXPECT_EQ(object.fault, "");
    }
    EXPECT_EQ(names, (std::vector<std::string>{"B", "a", "a\nb", "empty", "\xff"}));
    EXPECT_TRUE(client->List("dir/empty").empty());
}

TEST_F(Query, ListOfTheRootLeavesOutTheStagingFolder) {
    fs::create_directory(At(".tarn-staging"));
    std::vector<std::string> names;
    for (const listed_object_t& object : Client()->List("")) {
        names.push_back(object.name);
    }
    EXPECT_EQ(names, (std::vector<std::string>{"dir", "dirlink", "file", "link", "way-out"}));
}

TEST_F(Query, ListOfManyObjectsComesInPagesAndIsComplete) {
    constexpr int kCount = 2 * static_cast<int>(kMaxObjects) + 1;
    for (int i = 0; i < kCount; ++i) {
        tests::WriteFile(At("dir/" + std::to_string(100000 + i)), "");
    }
    const auto listed = Client()->List("dir");
    ASSERT_EQ(listed.size(), static_cast<std::size_t>(kCount) + 1);
    EXPECT_EQ(listed[0].name, "100000");
    EXPECT_EQ(listed[kCount - 1].name, std::to_string(100000 + kCount - 1));
    EXPECT_EQ(listed[kCount].name, "empty");
}

TEST_F(Query, ListOfNoDirectoryFailsByName) {
    const auto client = Client();
    EXPECT_THAT(ThrownText([&] { client->List("missing"); }), HasSubstr("[missing]: No such file or directory"));
    EXPECT_THAT(ThrownText([&] { client->List("file"); }), HasSubstr("[file]: Not a directory"));
    EXPECT_EQ(client->List("dir").size(), 1U);
}

TEST_F(Query, InfoHasEverythingThatADescriptorTells) {
    ASSERT_EQ(::lsetxattr(At("file").c_str(), "user.a", "x\0y", 3, 0), 0);
    ASSERT_EQ(::mkfifo(At("pipe").c_str(), 0620), 0);
    const auto client = Client();
    const posix::unique_fd_t file(::open(At("file").c_str(), O_RDONLY | O_CLOEXEC));
    EXPECT_EQ(client->ReadInfo("file"), ReadMeta(file.get(), "file", nullptr));
    EXPECT_EQ(client->ReadInfo("file").attributes.front().value, "x\0y"s);
    EXPECT_EQ(client->ReadInfo("dir").type, util::EFileType::eDirectory);
    EXPECT_EQ(client->ReadInfo("").type, util::EFileType::eDirectory);
    EXPECT_EQ(client->ReadInfo("link").type, util::EFileType::eSymlink);
    EXPECT_EQ(client->ReadInfo("pipe").type, util::EFileType::eFifo);
    EXPECT_THAT(ThrownText([&] { client->ReadInfo("missing"); }), HasSubstr("[missing]: No such file or directory"));
}

TEST_F(Query, DigestIsThatOfTheContent) {
    const auto client = Client();
    EXPECT_EQ(client->Digest("file"), DigestFile(*host_.root, "file"));
    EXPECT_EQ(client->Digest("file")->size, 4U);
    for (const char* const name : {"missing", "dir", "link"}) {
        EXPECT_EQ(client->Digest(name), std::nullopt) << name;
    }
}

TEST_F(Query, WhatIsKeptIsAskedOfTheHost) {
    const partial_t kept{5, DigestFile(*host_.root, "file")->digest};
    host_.findPartial = [kept](const std::string& path, std::uint64_t size, const util::SFileTime& time) {
        const bool wanted = path == "new/file" && size == 7 && time == util::SFileTime{-1, 2};
        return wanted ? std::optional(kept) : std::nullopt;
    };
    const auto client = Client();
    EXPECT_EQ(client->FindPartial("new/file", 7, {-1, 2}), kept);
    EXPECT_EQ(client->FindPartial("new/file", 8, {-1, 2}), std::nullopt);
}

TEST_F(Query, WhereNothingIsKeptNothingIsFound) {
    EXPECT_EQ(Client()->FindPartial("file", 4, {}), std::nullopt);
}

TEST_F(Query, OwnersAreKeptAsTheHostSays) {
    for (const bool keeps : {false, true}) {
        host_.keepsOwners = keeps;
        const auto client = Client();
        EXPECT_EQ(client->KeepsOwners(), keeps);
        host_.keepsOwners = !keeps;
        EXPECT_EQ(client->KeepsOwners(), keeps);  // asked once
    }
}

TEST_F(Query, RemoveTakesFilesLinksAndEmptyDirectories) {
    const auto client = Client();
    client->Remove("file");
    client->Remove("link");
    client->Remove("dirlink");
    EXPECT_THAT(ThrownText([&] { client->Remove("dir"); }), HasSubstr("Failed to remove [dir]: Directory not empty"));
    client->Remove("dir/empty");
    client->Remove("dir");
    EXPECT_THAT(ThrownText([&] { client->Remove("dir"); }), HasSubstr("Failed to remove [dir]: No such file"));
    for (const char* const name : {"file", "link", "dirlink", "dir"}) {
        EXPECT_FALSE(IsThere(name)) << name;
    }
    EXPECT_EQ(tests::ReadFile(Place("canary/file")), "canary");
}

TEST_F(Query, MakeDirectoryReplacesNothing) {
    const auto client = Client();
    client->MakeDirectory("dir/new");
    EXPECT_TRUE(fs::is_directory(At("dir/new")));
    EXPECT_THROW(client->MakeDirectory("dir/new"), exc::CAlreadyExistsExc);
    EXPECT_THROW(client->MakeDirectory("link"), exc::CAlreadyExistsExc);
    EXPECT_THAT(ThrownText([&] { client->MakeDirectory("no/such/parent"); }), HasSubstr("[no/such/parent]"));
    EXPECT_FALSE(IsThere("no"));
}

TEST_F(Query, MoveReplacesOnlyWhenItMay) {
    tests::WriteFile(At("other"), "other");
    const auto client = Client();
    EXPECT_THROW(client->Move("file", "other", EReplace::eNo), exc::CAlreadyExistsExc);
    EXPECT_EQ(tests::ReadFile(At("other")), "other");
    client->Move("file", "other", EReplace::eYes);
    EXPECT_EQ(tests::ReadFile(At("other")), "text");
    client->Move("other", "dir/third", EReplace::eNo);
    EXPECT_EQ(tests::ReadFile(At("dir/third")), "text");
    EXPECT_THAT(ThrownText([&] { client->Move("missing", "x", EReplace::eNo); }), HasSubstr("[missing]: No such file"));
    EXPECT_FALSE(IsThere("file"));
    EXPECT_FALSE(IsThere("other"));
}

TEST_F(Query, SessionThatItsClientEndsHasNoError) {
    Client()->Examine({"file"});
    EXPECT_EQ(WaitEnd(), "");
}

TEST_F(Query, QuietClientKeepsItsSession) {
    tests::fake_clock_t clock;
    const auto client = Client();
    client->KeepAlive();  // too early to say anything
    clock.Advance(std::chrono::seconds(30));
    client->KeepAlive();
    clock.Advance(std::chrono::seconds(29));
    client->KeepAlive();
    EXPECT_TRUE(client->Examine({"file"}).front().has_value());
}

TEST_F(Query, KeepAliveSwallowsTheEndOfTheFarEndAndTheNextCallReportsIt) {
    tests::fake_clock_t clock;
    auto server = std::make_unique<tests::raw_listener_t>();
    std::thread script([&] {
        tests::raw_peer_t peer = server->Accept();
        peer.Receive(tests::kClientHelloSize);
        peer.Send(tests::ServerHello());
    });
    query_client_t client({"127.0.0.1", server->Port()}, {});
    script.join();  // closed
    clock.Advance(std::chrono::seconds(30));
    client.KeepAlive();
    EXPECT_EQ(ThrownText([&] { client.Examine({"a"}); }),
              "The connection with [127.0.0.1:" + std::to_string(server->Port()) + "] has broken off.");
}

TEST_F(Query, WhoeverWaitsHearsThatTheFarEndWorksAndMayKeepAlive) {
    tests::fake_clock_t clock;
    const std::string question = tests::wire_text_t().U32(6).String("file").Bytes();
    tests::scripted_server_t server([&](tests::raw_peer_t& peer) {
        tests::Grant(peer);
        EXPECT_EQ(peer.Receive(question.size()), question);
        peer.Send(tests::wire_text_t().U32(3).U32(3).U32(0).U32(0).Bytes());
        EXPECT_EQ(peer.ReceiveAll(), tests::wire_text_t().U32(2).Bytes());  // no question in between
    });
    {
        query_client_t client({"127.0.0.1", server.Port()}, {});
        int ticks = 0;
        client.OnWorking([&] {
            ++ticks;
            clock.Advance(std::chrono::seconds(100));
            client.KeepAlive();
        });
        EXPECT_EQ(client.Digest("file"), std::nullopt);
        EXPECT_EQ(ticks, 2);
    }
    server.Join();
}

class WorkingQuery : public Query {
  protected:
    WorkingQuery() {
        host_.workingInterval = std::chrono::milliseconds(1);
        host_.findPartial = [this](const auto&, auto, const auto&) {
            finish_.wait();
            return std::optional(partial_t{1, {}});
        };
    }

    static std::string Question() { return tests::wire_text_t().U32(7).String("file").U64(1).U64(0).U32(0).Bytes(); }

    std::latch finish_{1};
};

TEST_F(WorkingQuery, PeerHearsThatItsRequestIsWorkedOn) {
    tests::raw_peer_t peer = Peer();
    peer.Send(Question());
    for (int count = 0; count < 3; ++count) {
        EXPECT_EQ(tests::U32At(peer.Receive(4), 0), 3U);
    }
    finish_.count_down();
    std::uint32_t status = 3;
    while (status == 3) {
        status = tests::U32At(peer.Receive(4), 0);
    }
    EXPECT_EQ(status, 0U);
    EXPECT_EQ(peer.Receive(4 + 8 + 16), tests::wire_text_t().U32(1).U64(1).Zeroes(16).Bytes());
}

TEST_F(WorkingQuery, ClientWaitsUntilTheWorkIsDone) {
    const auto client = Client();
    std::thread later([this] { finish_.count_down(); });
    EXPECT_EQ(client->FindPartial("file", 1, {}), (partial_t{1, {}}));
    later.join();
}

TEST_F(WorkingQuery, PeerThatGoesAwayEndsTheSessionOnceTheWorkIsDone) {
    {
        tests::raw_peer_t peer = Peer();
        peer.Send(Question());
        EXPECT_EQ(tests::U32At(peer.Receive(4), 0), 3U);
    }
    finish_.count_down();
    EXPECT_NE(WaitEnd(), "");
}

TEST_F(WorkingQuery, OtherSessionsGoOnMeanwhile) {
    tests::raw_peer_t peer = Peer();
    peer.Send(Question());
    EXPECT_EQ(tests::U32At(peer.Receive(4), 0), 3U);
    EXPECT_TRUE(Client()->Examine({"file"}).front().has_value());
    finish_.count_down();
}

}  // namespace
}  // namespace agent::query
