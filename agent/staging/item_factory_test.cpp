#include "agent/staging/item_factory.h"

#include <gtest/gtest.h>

#include "agent/staging/receiver_scope.h"
#include "agent/token/item_token.h"
#include "mirrowen/exc/already_exists_exc.h"
#include "mirrowen/exc/not_impl_exc.h"
#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/io/mem_dev.h"
#include "tarn/blocks/file_area_dev_token.h"
#include "tests/support/staging_fixture.h"

namespace agent {
namespace {

using namespace std::string_literals;
using tests::TextOf;

/// Keeps what it is asked for.
class asked_receiver_t final : public IItemReceiver {
  public:
    std::shared_ptr<io::area::area_write_dev_t> Receive(item_t item, std::uint64_t size, EReplace replace) override {
        path = item.path;
        declared = size;
        mayReplace = replace;
        return nullptr;
    }

    std::string path;
    std::uint64_t declared = 0;
    EReplace mayReplace = EReplace::eNo;
};

class ItemFactory : public tests::staging_fixture_t {
  protected:
    static std::shared_ptr<item_token_t> Token(const item_t& item) { return std::make_shared<item_token_t>(item); }

    item_factory_t factory_;
};

TEST_F(ItemFactory, ServesItsOwnTypeWordOnly) {
    std::vector<std::string> types = {"before"};
    factory_.EnumTokenTypes(types);
    EXPECT_EQ(types, (std::vector<std::string>{"before", "agent-item"}));
}

TEST_F(ItemFactory, LoadsTheTokenOfAnItem) {
    const auto buffer = std::make_shared<std::string>();
    io::binary_stream_tt out(std::make_shared<io::mem_dev_tt<std::string>>(buffer));
    item_token_t(File("a/new")).Serial(out);
    io::binary_stream_tt in(std::make_shared<io::mem_dev_tt<std::string>>(buffer));
    const auto token = factory_.LoadToken("agent-item", in);
    ASSERT_NE(dynamic_cast<item_token_t*>(token.get()), nullptr);
    EXPECT_EQ(token->Path4Log(), "a/new");
    for (const char* type : {"file", "Agent-Item", ""}) {
        EXPECT_EQ(TextOf([&] { factory_.LoadToken(type, in); }),
                  "Token type ["s + type + "] is not served by the factory of items.");
    }
}

TEST_F(ItemFactory, TokenOfAnotherKindIsRefused) {
    const auto create = [&](std::shared_ptr<io::area::IAreaDevToken> token) {
        return TextOf([&] { factory_.CreateWriteDev(token, false, nullptr, false); });
    };
    EXPECT_EQ(create(std::make_shared<tarn::CFileAreaDevToken>("x")), "Token [file] is not that of an item.");
    EXPECT_EQ(create(nullptr), "Token [] is not that of an item.");
}

TEST_F(ItemFactory, IncrementalItemIsRefused) {
    const receiver_scope_t scope(Receiver());
    EXPECT_EQ(TextOf([&] { factory_.CreateWriteDev(Token(File("f")), true, nullptr, false); }),
              "Incremental items are not served: [f].");
}

TEST_F(ItemFactory, ThreadWithoutAReceiverTakesNothing) {
    EXPECT_EQ(TextOf([&] { factory_.CreateWriteDev(Token(File("f")), false, nullptr, true); }),
              "Items are not received here: [f].");
}

TEST_F(ItemFactory, ReceiverOfTheThreadIsAskedWithSizeAndOverwriteRule) {
    const auto receiver = std::make_shared<asked_receiver_t>();
    const receiver_scope_t scope(receiver);
    unsigned long size = 77;
    factory_.CreateWriteDev(Token(File("f")), false, &size, true);
    EXPECT_EQ(receiver->path, "f");
    EXPECT_EQ(receiver->declared, 77U);
    EXPECT_EQ(receiver->mayReplace, EReplace::eYes);
    factory_.CreateWriteDev(Token(File("g")), false, nullptr, false);
    EXPECT_EQ(receiver->path, "g");
    EXPECT_EQ(receiver->declared, 0U);
    EXPECT_EQ(receiver->mayReplace, EReplace::eNo);
}

TEST_F(ItemFactory, EarlyRefusalOfTheReceiverPassesUnwrapped) {
    const receiver_scope_t scope(Receiver());
    EXPECT_THROW(factory_.CreateWriteDev(Token(File("top")), false, nullptr, false), exc::CAlreadyExistsExc);
}

TEST_F(ItemFactory, ReadingAndTheOtherWayOfWritingAreNotOffered) {
    EXPECT_THROW(factory_.CreateReadDev(Token(File("f"))), exc::CNotImplExc);
    EXPECT_THROW(factory_.CreateWriteDevForHVIR(Token(File("f")), nullptr), exc::CNotImplExc);
}

}  // namespace
}  // namespace agent
