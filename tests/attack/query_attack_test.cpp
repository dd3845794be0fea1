#include <sys/stat.h>

#include <filesystem>
#include <functional>
#include <span>

#include <gmock/gmock.h>

#include "agent/query/query_client.h"
#include "mirrowen/digest/stream_digest.h"
#include "tests/attack/attack_kit.h"
#include "tests/attack/flipper.h"

namespace tests {
namespace {

namespace fs = std::filesystem;
using agent::EReplace;
using agent::query::query_client_t;
using testing::HasSubstr;
using testing::Not;
using namespace std::string_literals;

/// A request with one name in it.
struct named_request_t {
    const char* name;
    std::function<void(query_client_t&, const std::string&)> call;
};

const std::vector<named_request_t>& Questions() {
    static const std::vector<named_request_t> all = {
        {"Examine", [](auto& client, auto& name) { client.Examine({name}); }},
        {"List", [](auto& client, auto& name) { client.List(name); }},
        {"ReadInfo", [](auto& client, auto& name) { client.ReadInfo(name); }},
        {"Digest", [](auto& client, auto& name) { client.Digest(name); }},
        {"FindPartial", [](auto& client, auto& name) { client.FindPartial(name, 1, {}); }}};
    return all;
}

const std::vector<named_request_t>& Changes() {
    static const std::vector<named_request_t> all = {
        {"Remove", [](auto& client, auto& name) { client.Remove(name); }},
        {"MakeDirectory", [](auto& client, auto& name) { client.MakeDirectory(name); }},
        {"Move from", [](auto& client, auto& name) { client.Move(name, "moved", EReplace::eYes); }},
        {"Move to", [](auto& client, auto& name) { client.Move("own", name, EReplace::eYes); }},
        {"Move to a free name", [](auto& client, auto& name) { client.Move("own", name, EReplace::eNo); }}};
    return all;
}

/// Questions and changes that a hostile peer asks for.
class QueryAttack : public served_attack_t {
  protected:
    void ServeQueries() {
        MakeFile(Root("own"), "own");
        Serve();
        client_ = std::make_unique<query_client_t>(agent::net::endpoint_t{"127.0.0.1", Server().Port()},
                                                   agent::net::remote_options_t{});
    }
    query_client_t& Client() { return *client_; }

    /// The text of the refusal; empty when there was none.
    std::string Refusal(const named_request_t& request, const std::string& name) {
        try {
            request.call(Client(), name);
        } catch (const std::exception& error) {
            return error.what();
        }
        return {};
    }

    /// Asks all there is to ask about a name and expects that no answer tells anything of the canary.
    void ExpectNothingTold(const std::string& name) {
        SCOPED_TRACE(name);
        digest::stream_digest_t secret;
        secret.Add(std::as_bytes(std::span(Canary().Secret())));
        try {
            const auto found = Client().Examine({name});
            EXPECT_FALSE(found.at(0) && IsTheCanarys(*found[0]));
        } catch (const std::exception& error) {
            ExpectDiscreet(error.what());
        }
        try {
            const auto digest = Client().Digest(name);
            EXPECT_FALSE(digest && digest->digest == secret.Get());
        } catch (const std::exception& error) {
            ExpectDiscreet(error.what());
        }
        try {
            EXPECT_NE(Client().ReadInfo(name).modificationTime.seconds, 1000000002);
        } catch (const std::exception& error) {
            ExpectDiscreet(error.what());
        }
        try {
            for (const auto& object : Client().List(name)) {
                EXPECT_THAT(object.name, Not(testing::AnyOf("inner", "file")));
            }
        } catch (const std::exception& error) {
            ExpectDiscreet(error.what());
        }
    }

    /// Where the root lies is nothing to a peer.
    void ExpectDiscreet(const std::string& text) const { EXPECT_THAT(text, Not(HasSubstr(Place("")))); }

  private:
    bool IsTheCanarys(const agent::object_brief_t& brief) {
        for (const char* const part : {"secret", "dir", "empty", "link", "dir/inner", "dir/file"}) {
            struct stat found {};
            if (::lstat((Canary() / part).c_str(), &found) == 0 && found.st_ino == brief.inode) {
                return true;
            }
        }
        return false;
    }

    std::unique_ptr<query_client_t> client_;
};

INSTANTIATE_TEST_SUITE_P(Serving, QueryAttack, testing::ValuesIn(AllStands()), NameOfStand);

TEST_P(QueryAttack, NamesThatLeadOutAreRefusedByEveryRequest) {
    ServeQueries();
    const std::vector<std::string> names = {"/",
                                            Canary() / "secret",
                                            "..",
                                            "../canary/secret",
                                            "sub/../../canary/secret",
                                            "./own",
                                            "sub/",
                                            "a//b",
                                            "../canary/secret\0x"s,
                                            ".tarn-staging",
                                            ".tarn-staging/lock",
                                            ".TARN-staging/new",
                                            std::string(256, 'n')};
    for (const auto* const requests : {&Questions(), &Changes()}) {
        for (const named_request_t& request : *requests) {
            for (const std::string& name : names) {
                SCOPED_TRACE(request.name + (" " + name.substr(0, 60)));
                EXPECT_THAT(Refusal(request, name), HasSubstr("is refused: "));
            }
        }
    }
    EXPECT_EQ(ReadFile(Root("own")), "own");
    ExpectUnharmed();
}

TEST_P(QueryAttack, PlantedLinksLeadNoRequestOut) {
    ServeQueries();
    MakeDirectory(Root("deep"));
    const std::vector<std::pair<std::string, std::string>> plants = {
        {"absolute", Canary().Path()}, {"relative", "../canary"},    {"up", ".."}, {"one", "two"},
        {"two", "../canary"},          {"deep/link", "../../canary"}};
    for (const auto& [name, target] : plants) {
        MakeLink(Root(name), target);
    }
    for (const std::string base : {"absolute", "relative", "up/canary", "one", "two", "deep/link"}) {
        ExpectNothingTold(base);
        for (const char* const part : {"secret", "link", "dir", "empty", "new", "dir/inner"}) {
            const std::string name = base + "/" + part;
            ExpectNothingTold(name);
            for (const named_request_t& change : Changes()) {
                const std::string text = Refusal(change, name);
                EXPECT_NE(text, "") << change.name << " " << name;
                ExpectDiscreet(text);
            }
        }
    }
    ExpectUnharmed();
}

TEST_P(QueryAttack, PlantedLinkItselfIsExaminedMovedAndRemovedAsTheLinkThatItIs) {
    ServeQueries();
    MakeLink(Root("plant"), Canary() / "secret");
    EXPECT_EQ(Client().Examine({"plant"}).at(0)->target, Canary() / "secret");
    EXPECT_FALSE(Client().Digest("plant"));
    Client().Move("plant", "moved", EReplace::eNo);
    EXPECT_TRUE(fs::is_symlink(Root("moved")));
    Client().Move("own", "moved", EReplace::eYes);
    EXPECT_EQ(ReadFile(Root("moved")), "own");
    MakeLink(Root("plant"), Canary() / "empty");
    Client().Remove("plant");
    EXPECT_FALSE(fs::is_symlink(Root("plant")));
    ExpectUnharmed();
}

TEST_P(QueryAttack, ParentThatIsSwappedForALinkAllTheTimeLeadsNoRequestOut) {
    ServeQueries();
    MakeDirectory(Root("a"));
    MakeDirectory(Root("a/dir"));
    MakeLink(Root("b"), Canary().Path());
    flipper_t flipper(Root(), "a", "b");
    RepeatFor(kAttackTime, [&] {
        for (const char* const name : {"a", "a/secret", "a/dir", "a/empty", "a/dir/new", "a/new"}) {
            ExpectNothingTold(name);
            for (const named_request_t& change : Changes()) {
                if (name != "a"s) {
                    static_cast<void>(Refusal(change, name));
                }
            }
            // What a move took away comes back, so that the next one has something to do.
            if (!fs::exists(fs::symlink_status(Root("own")))) {
                MakeFile(Root("own"), "own");
            }
        }
    });
    EXPECT_GT(flipper.Stop(), 0U);
    ExpectUnharmed();
}

TEST_P(QueryAttack, FileThatIsSwappedForALinkAllTheTimeTellsNothingOfItsTarget) {
    ServeQueries();
    MakeFile(Root("x"), "x");
    MakeLink(Root("y"), Canary() / "secret");
    flipper_t flipper(Root(), "x", "y");
    RepeatFor(kAttackTime, [&] { ExpectNothingTold("x"); });
    EXPECT_GT(flipper.Stop(), 0U);
    ExpectUnharmed();
}

TEST_P(QueryAttack, RootItselfIsNeitherMovedNorRemoved) {
    ServeQueries();
    for (const named_request_t& change : Changes()) {
        EXPECT_NE(Refusal(change, ""), "") << change.name;
        EXPECT_NE(Refusal(change, "."), "") << change.name;
    }
    EXPECT_TRUE(fs::is_directory(Root()));
    for (const auto& object : Client().List("")) {
        EXPECT_EQ(object.name, "own");
    }
    ExpectUnharmed();
}

}  // namespace
}  // namespace tests
