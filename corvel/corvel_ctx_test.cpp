#include "corvel/corvel_ctx.h"

#include <atomic>
#include <stdexcept>

#include "mirrowen/exc/runtime_exc.h"

namespace {

class factory_t final : public io::area::IAreaDevFactory {
  public:
    explicit factory_t(std::vector<std::string> types) : types_(std::move(types)) {}
    void EnumTokenTypes(std::vector<std::string>& types) override {
        types.insert(types.end(), types_.begin(), types_.end());
    }
    std::shared_ptr<io::area::IAreaDevToken> LoadToken(const std::string&, io::binary_stream_tt&) const override {
        throw std::logic_error("not called");
    }
    std::shared_ptr<io::area::area_read_dev_t> CreateReadDev(std::shared_ptr<io::area::IAreaDevToken>) const override {
        throw std::logic_error("not called");
    }
    std::shared_ptr<io::area::area_write_dev_t> CreateWriteDev(std::shared_ptr<io::area::IAreaDevToken>, bool,
                                                               unsigned long*, bool) override {
        throw std::logic_error("not called");
    }
    std::shared_ptr<io::area::area_write_dev_t> CreateWriteDevForHVIR(std::shared_ptr<io::area::IAreaDevToken>,
                                                                      unsigned long*) override {
        throw std::logic_error("not called");
    }

  private:
    std::vector<std::string> types_;
};

template <class Action>
std::string MessageOf(Action action) {
    try {
        action();
    } catch (const exc::CRuntimeExc& error) {
        return error.Message();
    }
    return "nothing was thrown";
}

TEST(CorvelCtxTest, ThereIsOneForTheProcess) {
    ASSERT_TRUE(CCorvelCtx::Inst());
    EXPECT_EQ(CCorvelCtx::Inst(), CCorvelCtx::Inst());
}

TEST(CorvelCtxTest, WithoutAMapperEveryPathComesBackUnchanged) {
    const CCorvelCtx context;
    EXPECT_EQ(context.TryMapRelativePath("RelativePath://a"), "RelativePath://a");
    EXPECT_EQ(context.TryMapRelativePath(""), "");
}

TEST(CorvelCtxTest, TheMapperInForceDecides) {
    CCorvelCtx context;
    context.SetRelativePathMapper([](const std::string& path) { return "/one/" + path; });
    EXPECT_EQ(context.TryMapRelativePath("a"), "/one/a");
    context.SetRelativePathMapper([](const std::string& path) { return "/two/" + path; });
    EXPECT_EQ(context.TryMapRelativePath("a"), "/two/a");
    context.SetRelativePathMapper({});
    EXPECT_EQ(context.TryMapRelativePath("a"), "a");
}

TEST(CorvelCtxTest, WhatTheMapperThrowsPasses) {
    CCorvelCtx context;
    context.SetRelativePathMapper([](const std::string&) -> std::string { throw std::out_of_range("refused"); });
    EXPECT_THROW(context.TryMapRelativePath("a"), std::out_of_range);
}

TEST(CorvelCtxTest, AMapperMayUseTheContextAndReplaceItself) {
    CCorvelCtx context;
    context.SetRelativePathMapper([&context](const std::string& path) {
        context.SetRelativePathMapper({});
        return context.TryMapRelativePath(path) + "!";
    });
    EXPECT_EQ(context.TryMapRelativePath("a"), "a!");
    EXPECT_EQ(context.TryMapRelativePath("a"), "a");
}

TEST(CorvelCtxTest, PlainPathsAreAllowedUntilTheyAreForbidden) {
    CCorvelCtx context;
    EXPECT_FALSE(context.IsNonPrefixPathesDisabled());
    context.SetNonPrefixPathesDisabled(true);
    EXPECT_TRUE(context.IsNonPrefixPathesDisabled());
    context.SetNonPrefixPathesDisabled(false);
    EXPECT_FALSE(context.IsNonPrefixPathesDisabled());
}

TEST(CorvelCtxTest, AFactoryServesEachOfItsTypesExactly) {
    CCorvelCtx context;
    const auto factory = std::make_shared<factory_t>(std::vector<std::string>{"file", "batch"});
    context.RegisterAreaDevFactory(factory);
    EXPECT_EQ(context.GetAreaDevFactory("file"), factory);
    EXPECT_EQ(context.GetAreaDevFactory("batch"), factory);
    EXPECT_EQ(MessageOf([&] { context.GetAreaDevFactory("File"); }),
              "Area device factory for token type [File] is not registered.");
    EXPECT_EQ(MessageOf([&] { context.GetAreaDevFactory(""); }),
              "Area device factory for token type [] is not registered.");
}

TEST(CorvelCtxTest, ALaterFactoryTakesOverItsTypesOnly) {
    CCorvelCtx context;
    const auto first = std::make_shared<factory_t>(std::vector<std::string>{"file", "batch"});
    const auto second = std::make_shared<factory_t>(std::vector<std::string>{"file"});
    context.RegisterAreaDevFactory(first);
    context.RegisterAreaDevFactory(second);
    EXPECT_EQ(context.GetAreaDevFactory("file"), second);
    EXPECT_EQ(context.GetAreaDevFactory("batch"), first);
}

TEST(CorvelCtxTest, AnEmptyFactoryIsRefused) {
    CCorvelCtx context;
    EXPECT_EQ(MessageOf([&] { context.RegisterAreaDevFactory(nullptr); }), "Area device factory to register is empty.");
}

TEST(CorvelCtxTest, AllCallsMayRunAtOnce) {
    CCorvelCtx context;
    context.RegisterAreaDevFactory(std::make_shared<factory_t>(std::vector<std::string>{"file"}));
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int number = 0; number < 4; ++number) {
        threads.emplace_back([&context, &wrong, number] {
            for (int round = 0; round < 500; ++round) {
                if (number == 0) {
                    context.SetRelativePathMapper([](const std::string& path) { return path + "x"; });
                    context.SetNonPrefixPathesDisabled(round % 2 == 0);
                } else if (number == 1) {
                    context.RegisterAreaDevFactory(
                        std::make_shared<factory_t>(std::vector<std::string>{"file", "batch"}));
                } else {
                    const std::string mapped = context.TryMapRelativePath("a");
                    wrong += mapped != "a" && mapped != "ax";
                    wrong += context.GetAreaDevFactory("file") == nullptr;
                    context.IsNonPrefixPathesDisabled();
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(wrong, 0);
}

}  // namespace
