#include "agent/confine/names_client.h"

#include <sys/socket.h>

#include <array>
#include <cstring>
#include <thread>

#include "agent/confine/name_answers.h"
#include "tests/support/fake_clock.h"
#include "tests/support/log_capture.h"

namespace agent {
namespace {

using namespace std::chrono_literals;

struct pair_t {
    pair_t() {
        std::array<int, 2> ends{};
        if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) != 0) {
            throw std::runtime_error("no socket pair");
        }
        near.reset(ends[0]);
        far.reset(ends[1]);
    }
    posix::unique_fd_t near;
    posix::unique_fd_t far;
};

// Accounts that count how often they were asked.
class counting_names_t final : public util::IUserNames {
  public:
    std::string GetUserName(std::uint32_t id) override {
        ++asked;
        return id == 7 ? "seven" : id == 8 ? std::string(kMaxNameInMessage + 1, 'x') : std::string();
    }
    std::string GetGroupName(std::uint32_t id) override {
        ++asked;
        return id == 7 ? "group seven" : id == 9 ? std::string(kMaxNameInMessage, 'y') : std::string();
    }
    std::optional<std::uint32_t> FindUser(const std::string& name) override {
        ++asked;
        return name == "seven" ? std::optional<std::uint32_t>(7) : std::nullopt;
    }
    std::optional<std::uint32_t> FindGroup(const std::string& name) override {
        ++asked;
        return name == "nought" ? std::optional<std::uint32_t>(0) : std::nullopt;
    }

    std::atomic<int> asked{0};
};

/// A client and, on a thread, the far end.
class NamesClient : public testing::Test {
  protected:
    NamesClient() : far_(std::move(pair_.far)), client_(std::move(pair_.near)) {
        thread_ = std::jthread([this] { AnswerNames(far_.get(), names_); });
    }
    ~NamesClient() override { client_.Close(); }

    tests::fake_clock_t clock_;
    counting_names_t names_;
    pair_t pair_;
    posix::unique_fd_t far_;
    names_client_t client_;
    std::jthread thread_;
};

TEST_F(NamesClient, EachQuestionHasItsAnswer) {
    EXPECT_EQ(client_.GetUserName(7), "seven");
    EXPECT_EQ(client_.GetGroupName(7), "group seven");
    EXPECT_EQ(client_.FindUser("seven"), 7U);
    EXPECT_EQ(client_.FindGroup("nought"), 0U);
}

TEST_F(NamesClient, WhatIsUnknownThereIsUnknownHere) {
    EXPECT_EQ(client_.GetUserName(1), "");
    EXPECT_EQ(client_.GetGroupName(1), "");
    EXPECT_EQ(client_.FindUser("nought"), std::nullopt);
    EXPECT_EQ(client_.FindGroup("seven"), std::nullopt);
    EXPECT_EQ(client_.FindUser(""), std::nullopt);
}

TEST_F(NamesClient, NamesBeyondTheBoundAreUnknownBothWays) {
    EXPECT_EQ(client_.GetUserName(8), "");
    EXPECT_EQ(client_.GetGroupName(9).size(), kMaxNameInMessage);
    const int before = names_.asked;
    EXPECT_EQ(client_.FindUser(std::string(kMaxNameInMessage + 1, 'a')), std::nullopt);
    EXPECT_EQ(names_.asked, before);
    EXPECT_EQ(client_.FindUser(std::string(kMaxNameInMessage, 'a')), std::nullopt);
    EXPECT_EQ(names_.asked, before + 1);
}

TEST_F(NamesClient, ManyThreadsMayAsk) {
    std::vector<std::jthread> threads;
    std::atomic<int> wrong{0};
    for (std::uint32_t thread = 0; thread < 4; ++thread) {
        threads.emplace_back([&, thread] {
            for (std::uint32_t round = 0; round < 100; ++round) {
                wrong += client_.GetUserName(7) != "seven";
                wrong += !client_.GetUserName(100 * thread + 1000 + round).empty();
            }
        });
    }
    threads.clear();
    EXPECT_EQ(wrong, 0);
}

TEST(NamesClientAlone, TheFarEndsDeathIsSaidOnceAndEverythingIsUnknown) {
    tests::log_capture_t log;
    pair_t pair;
    names_client_t client(std::move(pair.near));
    pair.far.reset();
    EXPECT_EQ(client.GetUserName(7), "");
    EXPECT_EQ(client.FindUser("seven"), std::nullopt);
    EXPECT_EQ(log.Count(logging::ELevel::eErr,
                        "The process that looks up owners' names has ended; owners go by their numbers from now on."),
              1U)
        << log.Dump();
}

TEST(NamesClientAlone, AMalformedAnswerEndsTheConversation) {
    pair_t pair;
    names_client_t client(std::move(pair.near));
    ASSERT_EQ(::send(pair.far.get(), "short", 5, 0), 5);
    EXPECT_EQ(client.GetUserName(7), "");
    std::array<char, kMaxNameMessage> bytes{};
    EXPECT_GT(::recv(pair.far.get(), bytes.data(), bytes.size(), 0), 0);  // the question
    EXPECT_EQ(::recv(pair.far.get(), bytes.data(), bytes.size(), 0), 0);
}

TEST(NamesClientAlone, AnOverdueAnswerHoldsNobodyElseAndIsNotTakenForAnother) {
    tests::fake_clock_t clock;
    tests::log_capture_t log;
    pair_t pair;
    names_client_t client(std::move(pair.near));
    std::string name = "?";
    std::jthread asking([&] { name = client.GetUserName(7); });
    std::array<char, kMaxNameMessage> bytes{};
    const ssize_t got = ::recv(pair.far.get(), bytes.data(), bytes.size(), 0);
    ASSERT_GT(got, 0);
    clock.Advance(names_client_t::kPatience);
    asking.join();
    EXPECT_EQ(name, "");
    EXPECT_TRUE(log.Has(logging::ELevel::eWarn, "The look-up of an owner has no answer after 10 s.")) << log.Dump();
    EXPECT_EQ(client.GetUserName(8), "");  // at once: the clock stands still
    EXPECT_TRUE(log.Has(logging::ELevel::eWarn, "The look-up of an owner takes long; [8] counts as unknown."))
        << log.Dump();

    name_message_t late = *DecodeNameMessage({bytes.data(), static_cast<std::size_t>(got)});
    late.code = 1;
    late.name = "late";
    const std::string answer = EncodeNameMessage(late);
    ASSERT_EQ(::send(pair.far.get(), answer.data(), answer.size(), 0), static_cast<ssize_t>(answer.size()));
    counting_names_t names;
    std::jthread far([&] { AnswerNames(pair.far.get(), names); });
    EXPECT_EQ(client.GetUserName(9), "");
    EXPECT_EQ(client.GetUserName(7), "seven");
    client.Close();
}

TEST(NameAnswers, WhatIsNoQuestionEndsThem) {
    counting_names_t names;
    const std::string question = EncodeNameMessage({1, 1, 7, {}});
    for (const std::string& bytes : {std::string("x"), EncodeNameMessage({1, 0, 7, {}}),
                                     EncodeNameMessage({1, 5, 7, {}}), question + std::string(kMaxNameMessage, 'x')}) {
        pair_t pair;
        ASSERT_EQ(::send(pair.near.get(), bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size()));
        ASSERT_EQ(::send(pair.near.get(), question.data(), question.size(), 0), static_cast<ssize_t>(question.size()));
        AnswerNames(pair.far.get(), names);  // returns
    }
    EXPECT_EQ(names.asked, 0);
}

TEST(NameMessage, ComesBackAsItWas) {
    const name_message_t message{1, 2, 0xFFFFFFFF, std::string("a\0b", 3)};
    EXPECT_EQ(DecodeNameMessage(EncodeNameMessage(message)), message);
    EXPECT_EQ(DecodeNameMessage(EncodeNameMessage(message).substr(0, 11)), std::nullopt);
    EXPECT_EQ(DecodeNameMessage(std::string(kMaxNameMessage + 1, 'x')), std::nullopt);
}

}  // namespace
}  // namespace agent
