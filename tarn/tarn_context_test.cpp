#include "tarn/tarn_context.h"

#include <atomic>
#include <cstdlib>
#include <future>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/virtual_slot.h"

namespace tarn {
namespace {

using operations_t = std::shared_ptr<fs_operations_t>;
using testing::ElementsAre;

static_assert(std::is_same_v<decltype(&IFsOperationsFactory::CreateFsOperations),
                             operations_t (IFsOperationsFactory::*)(const SFsOperationsConfig&)>);
static_assert(std::is_same_v<decltype(&IRestrictedFsOperationsFactory::CreateFsOperations),
                             operations_t (IRestrictedFsOperationsFactory::*)(const SFsOperationsConfig&)>);
static_assert(std::is_same_v<decltype(&IRestrictedFsOperationsFactory::GrantAccessToPath),
                             void (IRestrictedFsOperationsFactory::*)(const std::string&, bool)>);
static_assert(!std::is_base_of_v<IFsOperationsFactory, IRestrictedFsOperationsFactory>);
static_assert(std::is_same_v<decltype(&CTarnContext::FindFsOperationsFactory),
                             std::shared_ptr<IFsOperationsFactory> (CTarnContext::*)(const std::string&) const>);
static_assert(std::is_same_v<decltype(&CTarnContext::Instance), CTarnContext& (*)()>);
static_assert(!std::is_copy_constructible_v<CTarnContext> && !std::is_default_constructible_v<CTarnContext>);

/// A context of its own, beside the process's.
class own_context_t : public CTarnContext {};

class mock_factory_t : public IFsOperationsFactory {
  public:
    MOCK_METHOD(operations_t, CreateFsOperations, (const SFsOperationsConfig&), (override));
};

class mock_restricted_factory_t : public IRestrictedFsOperationsFactory {
  public:
    MOCK_METHOD(operations_t, CreateFsOperations, (const SFsOperationsConfig&), (override));
    MOCK_METHOD(void, GrantAccessToPath, (const std::string&, bool), (override));
};

/// Runs an action when it is destroyed.
template <class Factory>
class last_words_t : public Factory {
  public:
    explicit last_words_t(std::function<void()> action) : action_(std::move(action)) {}
    ~last_words_t() override { action_(); }
    last_words_t(const last_words_t&) = delete;
    last_words_t& operator=(const last_words_t&) = delete;

  private:
    std::function<void()> action_;
};

TEST(TarnContext, FactoriesDeclareTheirVirtualFunctionsInOrder) {
    EXPECT_EQ(tests::VirtualSlot(&IFsOperationsFactory::CreateFsOperations), 1U);
    EXPECT_EQ(tests::VirtualSlot(&IRestrictedFsOperationsFactory::CreateFsOperations), 1U);
    EXPECT_EQ(tests::VirtualSlot(&IRestrictedFsOperationsFactory::GrantAccessToPath), 2U);
}

TEST(TarnContext, FreshContextKnowsNoFactoryAndHasRulesOfItsOwn) {
    own_context_t context;
    for (const std::string word : {"", "cloudfs", "cloudfs://", "FlrFS", "MemFs"}) {
        EXPECT_EQ(context.FindFsOperationsFactory(word), nullptr) << word;
    }
    std::string out = "kept";
    EXPECT_FALSE(context.GetFLRContext()->TryMapPath("/a", out));
    EXPECT_EQ(out, "kept");
    context.GrantAccessToRestrictedFsPath("unknown", "path", true);
}

TEST(TarnContext, InstanceIsOneObjectForAllThreads) {
    std::vector<std::future<CTarnContext*>> calls;
    for (int i = 0; i < 8; ++i) {
        calls.push_back(std::async(std::launch::async, [] { return &CTarnContext::Instance(); }));
    }
    for (auto& call : calls) {
        EXPECT_EQ(call.get(), &CTarnContext::Instance());
    }
}

TEST(TarnContext, RulesOfTheViewAreAlwaysTheSameObject) {
    own_context_t context;
    const auto rules = context.GetFLRContext();
    ASSERT_NE(rules, nullptr);
    EXPECT_EQ(context.GetFLRContext(), rules);
    EXPECT_NE(CTarnContext::Instance().GetFLRContext(), nullptr);
    EXPECT_NE(CTarnContext::Instance().GetFLRContext(), rules);
}

TEST(TarnContext, RelativePathPrefixIsConstant) {
    EXPECT_EQ(own_context_t().GetRelativePathPrefix(), "RelativePath://");
    EXPECT_EQ(own_context_t().GetRelativePathPrefix().size(), 15U);
}

TEST(TarnContext, WordsAreComparedWholeAndWithoutCase) {
    own_context_t context;
    const auto factory = std::make_shared<mock_factory_t>();
    context.RegisterFsOperationsFactory("AbC", factory);
    EXPECT_EQ(context.FindFsOperationsFactory("abc"), factory);
    EXPECT_EQ(context.FindFsOperationsFactory("ABC"), factory);
    for (const std::string other : {"ab", "abcd", "abc://", "abc://path", " abc"}) {
        EXPECT_EQ(context.FindFsOperationsFactory(other), nullptr) << other;
    }
}

TEST(TarnContext, OnlyAsciiLettersAreFolded) {
    own_context_t context;
    context.RegisterFsOperationsFactory("\xc3\x84", std::make_shared<mock_factory_t>());
    EXPECT_EQ(context.FindFsOperationsFactory("\xc3\xa4"), nullptr);
    EXPECT_NE(context.FindFsOperationsFactory("\xc3\x84"), nullptr);
    EXPECT_EQ(context.FindFsOperationsFactory("["), nullptr);
    context.RegisterFsOperationsFactory("{", std::make_shared<mock_factory_t>());
    EXPECT_EQ(context.FindFsOperationsFactory("["), nullptr);
}

TEST(TarnContext, SecondRegistrationReplacesAndReleasesTheFirst) {
    own_context_t context;
    auto first = std::make_shared<mock_factory_t>();
    const std::weak_ptr<IFsOperationsFactory> watch = first;
    context.RegisterFsOperationsFactory("word", std::move(first));
    EXPECT_FALSE(watch.expired());
    const auto second = std::make_shared<mock_factory_t>();
    context.RegisterFsOperationsFactory("WORD", second);
    EXPECT_TRUE(watch.expired());
    EXPECT_EQ(context.FindFsOperationsFactory("word"), second);
}

TEST(TarnContext, SecondRestrictedRegistrationReplacesAndReleasesTheFirst) {
    own_context_t context;
    auto first = std::make_shared<mock_restricted_factory_t>();
    EXPECT_CALL(*first, GrantAccessToPath).Times(0);
    const std::weak_ptr<IRestrictedFsOperationsFactory> watch = first;
    context.RegisterRestrictedFsOperationsFactory("word", std::move(first));
    const auto second = std::make_shared<mock_restricted_factory_t>();
    context.RegisterRestrictedFsOperationsFactory("Word", second);
    EXPECT_TRUE(watch.expired());
    EXPECT_CALL(*second, GrantAccessToPath("p", true));
    context.GrantAccessToRestrictedFsPath("wORD", "p", true);
}

TEST(TarnContext, FactoryHandedOutOutlivesItsReplacement) {
    own_context_t context;
    context.RegisterFsOperationsFactory("word", std::make_shared<mock_factory_t>());
    const auto held = context.FindFsOperationsFactory("word");
    context.RegisterFsOperationsFactory("word", std::make_shared<mock_factory_t>());
    ASSERT_NE(held, nullptr);
    EXPECT_EQ(held.use_count(), 1);
}

TEST(TarnContext, ReplacedFactoryMayComeBackIntoTheContextAsItGoes) {
    own_context_t context;
    bool cameBack = false;
    const auto comeBack = [&] { cameBack = context.FindFsOperationsFactory("word") != nullptr; };
    context.RegisterFsOperationsFactory("word", std::make_shared<last_words_t<mock_factory_t>>(comeBack));
    context.RegisterFsOperationsFactory("word", std::make_shared<mock_factory_t>());
    EXPECT_TRUE(cameBack);
}

TEST(TarnContext, WordOfARestrictedFactoryFindsNothing) {
    own_context_t context;
    context.RegisterRestrictedFsOperationsFactory("word", std::make_shared<mock_restricted_factory_t>());
    EXPECT_EQ(context.FindFsOperationsFactory("word"), nullptr);
    const auto factory = std::make_shared<mock_factory_t>();
    context.RegisterFsOperationsFactory("word", factory);
    EXPECT_EQ(context.FindFsOperationsFactory("word"), factory);
}

TEST(TarnContext, GrantReachesTheRestrictedFactoryUnchanged) {
    own_context_t context;
    const auto factory = std::make_shared<testing::StrictMock<mock_restricted_factory_t>>();
    context.RegisterRestrictedFsOperationsFactory("Word", factory);
    const testing::InSequence order;
    EXPECT_CALL(*factory, GrantAccessToPath("word://a/B", true));
    EXPECT_CALL(*factory, GrantAccessToPath("", false));
    context.GrantAccessToRestrictedFsPath("word", "word://a/B", true);
    context.GrantAccessToRestrictedFsPath("WORD", "", false);
    context.GrantAccessToRestrictedFsPath("other", "p", true);
}

TEST(TarnContext, GrantDoesNotLookIntoTheOrdinaryRegistry) {
    own_context_t context;
    const auto factory = std::make_shared<testing::StrictMock<mock_factory_t>>();
    context.RegisterFsOperationsFactory("word", factory);
    context.GrantAccessToRestrictedFsPath("word", "p", true);
}

TEST(TarnContext, GrantFailureReachesTheCallerAndFreesTheRegistry) {
    own_context_t context;
    const auto factory = std::make_shared<mock_restricted_factory_t>();
    EXPECT_CALL(*factory, GrantAccessToPath).WillOnce(testing::Throw(std::runtime_error("refused")));
    context.RegisterRestrictedFsOperationsFactory("word", factory);
    EXPECT_THROW(context.GrantAccessToRestrictedFsPath("word", "p", true), std::runtime_error);
    EXPECT_EQ(context.FindFsOperationsFactory("word"), nullptr);
}

TEST(TarnContext, GrantHoldsTheRegistryWhileTheFactoryWorks) {
    own_context_t context;
    const auto factory = std::make_shared<mock_restricted_factory_t>();
    std::atomic<bool> registered{false};
    std::thread other;
    EXPECT_CALL(*factory, GrantAccessToPath).WillOnce([&] {
        std::promise<void> started;
        other = std::thread([&] {
            started.set_value();
            context.RegisterFsOperationsFactory("late", std::make_shared<mock_factory_t>());
            registered = true;
        });
        started.get_future().wait();
        for (int i = 0; i < 1000; ++i) {
            std::this_thread::yield();
            EXPECT_FALSE(registered);
        }
    });
    context.RegisterRestrictedFsOperationsFactory("word", factory);
    context.GrantAccessToRestrictedFsPath("word", "p", true);
    other.join();
    EXPECT_TRUE(registered);
}

TEST(TarnContext, DestructionReleasesRestrictedFactoriesFirstThenOrdinaryOnesThenTheRules) {
    std::vector<std::string> gone;
    std::weak_ptr<CFLRContext> rules;
    {
        own_context_t context;
        rules = context.GetFLRContext();
        const auto note = [&](const std::string& what) { gone.push_back(what + (rules.expired() ? "!" : "")); };
        context.RegisterFsOperationsFactory("word",
                                            std::make_shared<last_words_t<mock_factory_t>>([=] { note("ordinary"); }));
        context.RegisterRestrictedFsOperationsFactory(
            "word", std::make_shared<last_words_t<mock_restricted_factory_t>>([=] { note("restricted"); }));
    }
    EXPECT_THAT(gone, ElementsAre("restricted", "ordinary"));
    EXPECT_TRUE(rules.expired());
}

/// Says on standard error that it was destroyed, and whether the rules of the view are gone by then.
struct exit_probe_t {
    ~exit_probe_t() { std::fputs(rules.expired() ? "rules gone\n" : "rules there\n", stderr); }
    std::weak_ptr<CFLRContext> rules;
};

TEST(TarnContextDeathTest, TheProcessesContextIsDestroyedAtExit) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto exitWithFactories = [] {
        static exit_probe_t probe;  // made before the context, so destroyed after it
        CTarnContext& context = CTarnContext::Instance();
        probe.rules = context.GetFLRContext();
        const auto say = [](const char* text) { return [text] { std::fputs(text, stderr); }; };
        context.RegisterFsOperationsFactory("word",
                                            std::make_shared<last_words_t<mock_factory_t>>(say("ordinary gone\n")));
        context.RegisterRestrictedFsOperationsFactory(
            "word", std::make_shared<last_words_t<mock_restricted_factory_t>>(say("restricted gone\n")));
        std::exit(7);
    };
    EXPECT_EXIT(exitWithFactories(), testing::ExitedWithCode(7), "restricted gone\nordinary gone\nrules gone");
}

/// Counts its grants without a lock of its own: the context's must do.
class counting_factory_t : public IRestrictedFsOperationsFactory {
  public:
    operations_t CreateFsOperations(const SFsOperationsConfig&) override { return nullptr; }
    void GrantAccessToPath(const std::string&, bool) override { ++grants; }
    int grants = 0;
};

TEST(TarnContext, RegistriesServeManyThreadsAtOnce) {
    constexpr int kThreads = 4;
    constexpr int kRounds = 2000;
    own_context_t context;
    const auto restricted = std::make_shared<counting_factory_t>();
    context.RegisterRestrictedFsOperationsFactory("shared", restricted);
    std::atomic<int> missing{0};
    const auto work = [&](int thread) {
        const std::string own = "own" + std::to_string(thread);
        for (int i = 0; i < kRounds; ++i) {
            const auto factory = std::make_shared<mock_factory_t>();
            context.RegisterFsOperationsFactory(own, factory);
            context.RegisterFsOperationsFactory("contested", factory);
            missing += context.FindFsOperationsFactory(own) == factory ? 0 : 1;
            missing += context.FindFsOperationsFactory("CONTESTED") != nullptr ? 0 : 1;
            context.GrantAccessToRestrictedFsPath("Shared", own, i % 2 == 0);
            missing += context.GetFLRContext() != nullptr ? 0 : 1;
        }
    };
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back(work, thread);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(missing, 0);
    EXPECT_EQ(restricted->grants, kThreads * kRounds);
}

}  // namespace
}  // namespace tarn
