#include <filesystem>
#include <span>

#include "brannock/transmission/item_digest.h"
#include "tests/attack/attack_kit.h"
#include "tests/attack/flipper.h"
#include "tests/edge/raw_frame.h"
#include "tests/edge/raw_session.h"
#include "tests/support/upload_kit.h"

namespace tests {
namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;

/// The commands that open their paths as any program does, links included: the kernel alone holds them in the root.
class CommandAttack : public served_attack_t {
  protected:
    static std::string LastFrame(std::string_view content) {
        brannock::transmission::end_record_t end;
        end.bytes = content.size();
        end.blocks = 1;
        brannock::transmission::item_digest_t digest;
        digest.Add(std::as_bytes(std::span(content)));
        end.digest = digest.Get();
        const auto payload = brannock::transmission::EncodeEnd(end);
        return Frame({.type = EFrameType::eEnd}, {reinterpret_cast<const char*>(payload.data()), payload.size()});
    }

    /// Commands 1 and 4 as an older sender says them, with content; the answers are nothing to an attacker.
    void SendOldFile(const std::string& path, bool withInfo) {
        raw_session_t session(Server().Port());
        wire_text_t message;
        message.U32(withInfo ? 4 : 1).String(path).U64(4).U32(0).U32(4096);
        if (withInfo) {
            message.Raw(BytesWritten(
                [](io::binary_stream_tt& stream) { LoudInfo(util::EFileType::eRegular).Serialize(stream); }));
        }
        session.Send(message);
        if (session.ReceiveAck().kind == 0 && session.ReceiveU32() == 0) {
            session.Send(wire_text_t().Raw(NetworkConfiguration()));
            session.Peer().Receive(NetworkConfiguration().size());
            session.SendLast(wire_text_t().Raw(DataFrame(0, 0, "evil")).Raw(LastFrame("evil")));
            session.Peer().ReceiveAll();
        }
    }

    /// Everything that a peer can do with a path. Whether it exists may only be answered with no.
    void TryAll(const std::string& path) {
        SCOPED_TRACE(path);
        EXPECT_NE(Attacker().Ask(path), std::optional(true));
        EXPECT_NE(Attacker().Ask(path + "/."), std::optional(true));
        TryChanges(path);
    }
    void TryChanges(const std::string& path) {
        SendOldFile(path, false);
        SendOldFile(path, true);
        Attacker().SendFile(path, "evil");
        Attacker().SendFile(path, "evil", LoudInfo(util::EFileType::eRegular));
        Attacker().SendFile(path, "", LoudInfo(util::EFileType::eDirectory));
        Attacker().SendHvir(path, "evil");
        Attacker().SendLink(path, "evil");
    }
};

INSTANTIATE_TEST_SUITE_P(Serving, CommandAttack, testing::ValuesIn(ConfinedStands()), NameOfStand);

TEST_P(CommandAttack, LinksThatThePeerPlantedLeadNowhere) {
    Serve();
    const std::string canary = Canary().Path();
    const std::vector<std::pair<std::string, std::string>> plants = {{"absolute", canary},
                                                                     {"relative", "../canary"},
                                                                     {"further", "../../../../../../../../.." + canary},
                                                                     {"up", ".."},
                                                                     {"one", "two"},
                                                                     {"two", "../canary"},
                                                                     {"process", "/proc/self/root" + canary},
                                                                     {"first", "/proc/1/root" + canary},
                                                                     {"place", "/proc/self/cwd/../canary"},
                                                                     {"opened", "/proc/self/fd/3/../canary"}};
    for (const auto& [name, target] : plants) {
        ASSERT_EQ(Attacker().SendLink(name, target), "");
        ASSERT_EQ(fs::read_symlink(Root(name)), target);
        const std::string base = name == "up" ? "up/canary" : name;
        for (const char* const part : {"secret", "link", "dir/inner", "dir", "empty", "new"}) {
            TryAll(base + "/" + part);
        }
        ExpectUnharmed();
    }
}

TEST_P(CommandAttack, LinkInAFilesPlaceLeadsNowhere) {
    Serve();
    for (const std::string part : {"secret", "dir", "empty", "link", "new"}) {
        for (const std::string& target : {Canary() / part, "../canary/" + part}) {
            SCOPED_TRACE(target);
            fs::remove_all(Root("plant"));
            MakeLink(Root("plant"), target);
            EXPECT_NE(Attacker().Ask("plant/."), std::optional(true));
            for (const bool withInfo : {false, true}) {
                SendOldFile("plant", withInfo);
                fs::remove_all(Root("plant"));
                MakeLink(Root("plant"), target);
            }
            TryChanges("plant");
            ExpectUnharmed();
        }
    }
}

TEST_P(CommandAttack, ParentThatIsSwappedForALinkAllTheTimeLeadsNowhere) {
    Serve();
    for (const std::string& target : {Canary().Path(), "../canary"s}) {
        fs::remove_all(Root("a"));
        fs::remove_all(Root("b"));
        MakeDirectory(Root("a"));
        MakeLink(Root("b"), target);
        flipper_t flipper(Root(), "a", "b");
        RepeatFor(kAttackTime, [&] {
            EXPECT_NE(Attacker().Ask("a/empty"), std::optional(true));
            for (const char* const part : {"a/secret", "a/link", "a/dir", "a/new"}) {
                TryChanges(part);
            }
        });
        EXPECT_GT(flipper.Stop(), 0U);
        ExpectUnharmed();
    }
}

TEST_P(CommandAttack, FileThatIsSwappedForALinkAllTheTimeIsNotWrittenThroughIt) {
    Serve();
    MakeFile(Root("x"), "x");
    MakeLink(Root("y"), Canary() / "secret");
    flipper_t flipper(Root(), "x", "y");
    RepeatFor(kAttackTime, [&] {
        TryChanges("x");
        if (!fs::exists(fs::symlink_status(Root("y")))) {
            MakeLink(Root("y"), Canary() / "secret");
        }
    });
    EXPECT_GT(flipper.Stop(), 0U);
    ExpectUnharmed();
}

TEST_P(CommandAttack, RootIsAllThatThereIs) {
    Serve();
    for (const std::string outside : {"/etc", "/etc/passwd", "/proc/self", "/dev/null", "/usr", "/tmp", "/root/.."}) {
        fs::remove_all(Root("plant"));
        ASSERT_EQ(Attacker().SendLink("plant", outside + "/."), "");
        EXPECT_EQ(Attacker().Ask("plant/."), std::optional(outside == "/root/.." ? Attacker().Ask("plant/x") : false))
            << outside;
    }
    // An absolute link that leads to something below the root is served from there.
    MakeDirectory(Root("etc"));
    MakeFile(Root("etc/passwd"), "of the root");
    ASSERT_EQ(Attacker().SendLink("inside", "/etc"), "");
    EXPECT_EQ(Attacker().Ask("inside/passwd"), std::optional(true));
    EXPECT_EQ(Attacker().Ask("inside/group"), std::optional(false));
    ExpectUnharmed();
}

}  // namespace
}  // namespace tests
