#include <filesystem>

#include <gmock/gmock.h>

#include "agent/send/send_client.h"
#include "tests/attack/attack_kit.h"
#include "tests/attack/flipper.h"
#include "tests/support/blocks.h"

namespace tests {
namespace {

namespace fs = std::filesystem;
using agent::send::send_client_t;
using testing::HasSubstr;
using testing::Not;
using namespace std::string_literals;

/// A peer that asks for what it should not get.
class SendAttack : public served_attack_t {
  protected:
    void ServeFiles() {
        Serve();
        client_ = std::make_unique<send_client_t>(agent::net::endpoint_t{"127.0.0.1", Server().Port()},
                                                  agent::net::remote_options_t{});
    }

    struct answer_t {
        agent::item_t item;
        std::string content;
        std::string failure;
    };

    answer_t Fetch(const std::string& path) {
        answer_t answer;
        try {
            const auto file = client_->Open({.path = path});
            answer.item = file->GetAnnounced().item;
            while (const auto area = file->ReadNext()) {
                for (std::uint64_t i = 0; i < area->GetBlockCount(); ++i) {
                    answer.content += BytesOf(*area->GetBlock(i));
                }
            }
        } catch (const std::exception& error) {
            answer.failure = *error.what() == '\0' ? "failed" : error.what();
        }
        return answer;
    }

    /// Neither content nor attributes of the canary.
    void ExpectNothingTold(const answer_t& answer) {
        EXPECT_THAT(answer.content, Not(HasSubstr(Canary().Secret())));
        EXPECT_NE(answer.item.info.modificationTime.seconds, 1000000002);
    }

  private:
    std::unique_ptr<send_client_t> client_;
};

INSTANTIATE_TEST_SUITE_P(Serving, SendAttack, testing::ValuesIn(AllStands()), NameOfStand);

TEST_P(SendAttack, NamesThatLeadOutAreRefused) {
    ServeFiles();
    for (const std::string& name :
         {"/"s, Canary() / "secret", ".."s, "../canary/secret"s, "a/../../canary/secret"s, "./../canary/secret"s, ""s,
          "a/"s, ".tarn-staging"s, ".tarn-staging/lock"s, ".TARN-staging/lock"s}) {
        const answer_t answer = Fetch(name);
        EXPECT_THAT(answer.failure, HasSubstr("is refused: ")) << name;
        ExpectNothingTold(answer);
    }
    ExpectUnharmed();
}

TEST_P(SendAttack, PlantedLinksLeadToNothing) {
    ServeFiles();
    MakeDirectory(Root("deep"));
    const std::vector<std::pair<std::string, std::string>> plants = {
        {"absolute", Canary().Path()}, {"relative", "../canary"},    {"up", ".."}, {"one", "two"},
        {"two", "../canary"},          {"deep/link", "../../canary"}};
    for (const auto& [name, target] : plants) {
        MakeLink(Root(name), target);
        const answer_t answer = Fetch(name);
        EXPECT_EQ(answer.failure, "");
        EXPECT_EQ(answer.item.kind, agent::EItemKind::eLink);
        EXPECT_EQ(answer.item.second, target);
    }
    for (const std::string base : {"absolute", "relative", "up/canary", "one", "two", "deep/link"}) {
        for (const char* const part : {"secret", "link", "dir", "empty", "dir/inner"}) {
            const answer_t answer = Fetch(base + "/" + part);
            EXPECT_NE(answer.failure, "") << base << "/" << part;
            EXPECT_THAT(answer.failure, Not(HasSubstr(Place("")))) << "where the root lies is nothing to a peer";
            ExpectNothingTold(answer);
        }
    }
    ExpectUnharmed();
}

TEST_P(SendAttack, ParentThatIsSwappedForALinkAllTheTimeIsNotReadThroughIt) {
    ServeFiles();
    MakeDirectory(Root("a"));
    MakeDirectory(Root("a/dir"));
    MakeFile(Root("a/secret"), "inside");
    MakeLink(Root("b"), Canary().Path());
    flipper_t flipper(Root(), "a", "b");
    RepeatFor(kAttackTime, [&] {
        for (const char* const name : {"a", "a/secret", "a/dir", "a/link", "a/dir/inner"}) {
            ExpectNothingTold(Fetch(name));
        }
    });
    EXPECT_GT(flipper.Stop(), 0U);
    ExpectUnharmed();
}

TEST_P(SendAttack, FileThatIsSwappedForALinkAllTheTimeIsNotReadThroughIt) {
    ServeFiles();
    MakeFile(Root("x"), "inside");
    MakeLink(Root("y"), Canary() / "secret");
    flipper_t flipper(Root(), "x", "y");
    std::uint64_t came = 0;
    RepeatFor(kAttackTime, [&] {
        const answer_t answer = Fetch("x");
        came += answer.content == "inside" ? 1 : 0;
        ExpectNothingTold(answer);
    });
    EXPECT_GT(flipper.Stop(), 0U);
    EXPECT_EQ(Fetch("x").content, "inside") << came << " came while it was swapped";
    ExpectUnharmed();
}

}  // namespace
}  // namespace tests
