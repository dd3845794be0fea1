#include <gmock/gmock.h>

#include "agent/send/send_client.h"
#include "tests/edge/edge_kit.h"
#include "tests/edge/raw_sender.h"
#include "tests/edge/scripted_server.h"
#include "tests/support/caught_error.h"
#include "tests/support/format_example.h"
#include "tests/support/open_descriptors.h"
#include "tests/support/own_threads.h"
#include "tests/support/send_server.h"
#include "tests/support/transfer_kit.h"
#include "tests/support/tree_snapshot.h"

/// A far end that is asked for a file and sends something else, or nothing: whoever asked hears why, writes nothing of
/// it anywhere, and keeps neither a thread nor a descriptor.
namespace tests {
namespace {

using namespace std::string_literals;
using testing::AnyOf;
using testing::HasSubstr;

const std::string kContent = "abc";

agent::item_t GoodItem() {
    return FileItem(kContent.size());
}

/// All that a good server sends for "file".
std::string GoodAnswer() {
    return kAccepted + Announcement(GoodItem(), kContent.size()) + NetworkConfiguration() + DataFrame(0, 0, kContent) +
           EndFrame(kContent, 1) + kEndOfUpload;
}

std::string AbortFrame(std::string_view text) {
    return Frame({.type = EFrameType::eAbort}, text);
}

/// Where hostile servers try to write; what is beside the client's root stays as it is.
class HostileSender : public edge_fixture_t {
  protected:
    HostileSender() { canary_ = SnapshotOf(Place("canary")); }
    ~HostileSender() override { EXPECT_EQ(SnapshotOf(Place("canary")), canary_); }

    // Asks a server that says these bytes, whatever it is told, for an item and reads it.
    caught_error_t Ask(const std::string& answer, const std::string& path = "file") {
        const std::size_t descriptors = OpenDescriptors();
        const std::size_t threads = OwnThreads();
        caught_error_t caught;
        {
            scripted_server_t server([&](raw_peer_t& peer) {
                peer.Receive(kClientHelloSize);
                peer.Send(ServerHello() + answer);
                peer.CloseWrite();
                peer.ReceiveAll();
            });
            caught = CatchError([&] {
                agent::send::send_client_t client({"127.0.0.1", server.Port()}, {});
                const auto file = client.Open({path, 0, 4096, io::block::EBufTransformType::eNone});
                read_ = ReadAllOf(*file);
                announced_ = file->GetAnnounced();
                notes_ = file->GetNotes();
            });
            server.Join();
        }
        EXPECT_EQ(OpenDescriptors(), descriptors);
        EXPECT_TRUE(IsBackAtThreads(threads));
        return caught;
    }
    void ExpectRefused(const std::string& answer, const std::string& reason) {
        const caught_error_t caught = Ask(answer);
        EXPECT_THAT(caught.message, AnyOf(HasSubstr("Failed to read [tarn://127.0.0.1:"), HasSubstr("session")));
        EXPECT_THAT(caught.what, HasSubstr(reason));
        EXPECT_EQ(caught.type, "exc::CRuntimeExc") << "nothing of a source exists already";
    }
    void ExpectRefusedItem(const agent::item_t& item, const std::string& reason, std::uint64_t size = kContent.size()) {
        ExpectRefused(kAccepted + Announcement(item, size), reason);
    }

    std::string read_;
    agent::send::announced_t announced_;
    std::vector<agent::copy::copy_note_t> notes_;
    std::map<std::string, std::string> canary_;
};

TEST_F(HostileSender, GoodAnswerIsTakenSoTheOthersFailForTheirOwnReason) {
    EXPECT_FALSE(Ask(GoodAnswer()).thrown);
    EXPECT_EQ(read_, kContent);
}

TEST_F(HostileSender, AnswerOfTheDocumentsIsTaken) {
    EXPECT_FALSE(Ask(FormatExample("Item that is sent back", "docs/protocol.md"), "l").thrown);
    EXPECT_EQ(announced_.item.kind, agent::EItemKind::eLink);
    EXPECT_EQ(announced_.item.second, "a");
    EXPECT_EQ(announced_.item.info.owner.name, "ann");
    ASSERT_EQ(notes_.size(), 1U);
    EXPECT_EQ(notes_[0].path, "l");
    EXPECT_EQ(notes_[0].text, "no");
}

TEST_F(HostileSender, AnswerCutAnywhereFails) {
    const std::string answer = GoodAnswer();
    for (std::size_t length = 0; length < answer.size(); ++length) {
        SCOPED_TRACE(length);
        EXPECT_TRUE(Ask(answer.substr(0, length)).thrown);
    }
}

TEST_F(HostileSender, AcknowledgementsAndNotesThatLie) {
    ExpectRefused(wire_text_t().U32(1).String("not\x1b today").Bytes(), "not\\x1b today");
    ExpectRefused(wire_text_t().U32(2).String("it is there").Bytes(), "it is there");
    ExpectRefused(wire_text_t().U32(7).Bytes(), "Unknown acknowledgement [7] was received.");
    ExpectRefused(wire_text_t().U32(1).U32(0xFFFFFFFF).Bytes(), "String of [4294967295] bytes");
    ExpectRefused(wire_text_t().U32(0).U32(1025).Bytes(), "List of [1025] notes is longer than the allowed [1024].");
    ExpectRefused(wire_text_t().U32(0).U32(1).U32(0xFFFFFFFF).Bytes(), "String of [4294967295] bytes");
}

TEST_F(HostileSender, NoOtherCommandIsServed) {
    const std::string canary = Place("canary");
    const std::string file = canary + "/file";
    const std::map<std::uint32_t, std::string> commands = {
        {1, wire_text_t().String(file).U64(3).U32(0).U32(4096).Bytes()},
        {3, wire_text_t().String(file).String(file).U64(7).U32(4096).Bytes()},
        {4, wire_text_t().String(file).U64(3).U32(0).U32(4096).Raw(NoFileInfo()).Bytes()},
        {6, Announcement(GoodItem(), kContent.size()).substr(4) + NoFileInfo()},
        {7, wire_text_t().String(file).String(file).String(file).U64(7).U32(4096).Bytes()},
        {8, wire_text_t().String("file").String(file).U64(3).U32(0).U32(4096).Bytes()},
        {9, wire_text_t().U32(1).String(file).Bytes()},
        {10, wire_text_t().String(canary + "/link").String("target").Bytes()},
        {0, ""},
        {77, ""},
    };
    for (const auto& [command, message] : commands) {
        ExpectRefused(kAccepted + wire_text_t().U32(command).Raw(message).Bytes() + NetworkConfiguration() +
                          DataFrame(0, 0, kContent) + EndFrame(kContent, 1) + kEndOfUpload,
                      "Command [" + std::to_string(command) + "] is not served here.");
    }
}

TEST_F(HostileSender, TokenOfAnotherTypeIsNotRead) {
    ExpectRefused(kAccepted + wire_text_t()
                                  .U32(5)
                                  .String("file")
                                  .String(Place("canary") + "/file")
                                  .U64(3)
                                  .U32(0)
                                  .U32(1)
                                  .U32(4096)
                                  .Bytes(),
                  "Items of type [file] are not served here.");
}

TEST_F(HostileSender, NothingAtAll) {
    ExpectRefused(kAccepted + kEndOfUpload, "[file] was asked for, but nothing came.");
}

TEST_F(HostileSender, AnotherPathIsRefused) {
    for (const std::string path : {"other", "/file", "../file", "./file", "file/", "dir/file", "FILE"}) {
        agent::item_t item = GoodItem();
        item.path = path;
        ExpectRefusedItem(item, "Item [" + path + "] came, but [file] was asked for.");
    }
    agent::item_t item = GoodItem();
    item.path = Place("canary") + "/file";
    ExpectRefusedItem(item, "came, but [file] was asked for.");
}

TEST_F(HostileSender, OtherKindsAndFlagsAreRefused) {
    agent::item_t link = GoodItem();
    link.kind = agent::EItemKind::eHardLink;
    link.second = "other";
    ExpectRefusedItem(link, "Items of kind [hard link] are not taken: [file].");
    agent::item_t commit;
    commit.kind = agent::EItemKind::eCommit;
    ExpectRefusedItem(commit, "came, but [file] was asked for.", 0);
    for (bool agent::item_t::*flag : {&agent::item_t::deferred, &agent::item_t::unsynced, &agent::item_t::resumable}) {
        agent::item_t item = GoodItem();
        item.*flag = true;
        ExpectRefusedItem(item, "Item [file] is not of the form that is read back.");
    }
    agent::item_t bare = GoodItem();
    bare.info = {};
    ExpectRefusedItem(bare, "Item [file] is not of the form that is read back.");
    ExpectRefused(kAccepted + Announcement(GoodItem(), kContent.size(), 1), "Incremental items are not served");
}

TEST_F(HostileSender, SizesThatDoNotFitAreRefused) {
    ExpectRefusedItem(GoodItem(), "Item [file] is announced with [4] bytes, but has [3].", 4);
    ExpectRefusedItem(GoodItem(), "Item [file] is announced with [0] bytes, but has [3].", 0);
    agent::item_t late = GoodItem();
    late.startOffset = 1;
    ExpectRefusedItem(late, "Item [file] starts at [1], but the bytes from [0] were asked for.", 2);
    ExpectRefused(kAccepted + Announcement(GoodItem(), kContent.size(), 0, 1) + NetworkConfiguration(),
                  "Block size [1] is out of range.");
}

TEST_F(HostileSender, ContentThatIsNotTheAnnouncedOneFails) {
    const std::string begin = kAccepted + Announcement(GoodItem(), kContent.size()) + NetworkConfiguration();
    ExpectRefused(begin + DataFrame(0, 0, "abcd") + EndFrame("abcd", 1) + kEndOfUpload,
                  "Item [file] is longer than the announced [3] bytes.");
    ExpectRefused(begin + DataFrame(0, 0, "ab") + EndFrame("ab", 1) + kEndOfUpload,
                  "Item [file] ended after [2] bytes, but [3] were announced.");
    ExpectRefused(begin + EndFrame("", 0) + kEndOfUpload, "Item [file] ended after [0] bytes");
    ExpectRefused(begin + DataFrame(0, 5, kContent) + EndFrame(kContent, 1) + kEndOfUpload,
                  "Bytes of [file] came from [5], but those from [0] were next.");
    ExpectRefused(begin + DataFrame(0, 0, kContent) + EndFrame("xyz", 1) + kEndOfUpload,
                  "The digest of the received data is wrong.");
    ExpectRefused(begin + AbortFrame("the disk is\x1b gone"), "the disk is\\x1b gone");
    ExpectRefused(begin + std::string(80, 'x'), "Broken block stream");
}

TEST_F(HostileSender, EmptyContentOfADirectoryIsHeldToIt) {
    agent::item_t directory = GoodItem();
    directory.kind = agent::EItemKind::eDirectory;
    directory.info.type = util::EFileType::eDirectory;
    ExpectRefused(kAccepted + Announcement(directory, 0) + NetworkConfiguration() + DataFrame(0, 0, kContent) +
                      EndFrame(kContent, 1) + kEndOfUpload,
                  "Item [file] is longer than the announced [0] bytes.");
}

TEST_F(HostileSender, SecondItemFailsTheFirst) {
    const std::string good = GoodAnswer();
    const std::string twice =
        good.substr(0, good.size() - kEndOfUpload.size()) + Announcement(GoodItem(), kContent.size());
    ExpectRefused(twice, "Item [file] came besides the one that was asked for.");
}

TEST_F(HostileSender, SilentServerIsGivenUp) {
    for (const std::string& answer :
         {""s, kAccepted, kAccepted + Announcement(GoodItem(), kContent.size()),
          kAccepted + Announcement(GoodItem(), kContent.size()) + NetworkConfiguration() + DataFrame(0, 0, kContent)}) {
        std::promise<void> ended;
        scripted_server_t server([&](raw_peer_t& peer) {
            peer.Receive(kClientHelloSize);
            peer.Send(ServerHello() + answer);
            ended.get_future().wait();
        });
        const caught_error_t caught = CatchError([&] {
            agent::net::remote_options_t options;
            options.idleTimeout = std::chrono::milliseconds(200);
            agent::send::send_client_t client({"127.0.0.1", server.Port()}, options);
            ReadAllOf(*client.Open({"file", 0, 4096, io::block::EBufTransformType::eNone}));
        });
        EXPECT_THAT(caught.what, AnyOf(HasSubstr("timed out"), HasSubstr("silent"))) << caught.what;
        ended.set_value();
        server.Join();
    }
}

}  // namespace
}  // namespace tests
