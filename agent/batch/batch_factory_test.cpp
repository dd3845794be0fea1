#include "agent/batch/batch_factory.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "agent/staging/receiver_scope.h"
#include "agent/token/item_token.h"
#include "tests/support/batch_kit.h"
#include "tests/support/staging_fixture.h"

namespace agent::batch {
namespace {

using namespace std::string_literals;
using tarn::batch::CBatchAreaDevToken;
using tests::TextOf;

const std::string kName = "00000000000000000000000000000000/1";

/// Takes single items only.
class single_receiver_t final : public IItemReceiver {
  public:
    std::shared_ptr<io::area::area_write_dev_t> Receive(item_t /*item*/, std::uint64_t /*size*/,
                                                        EReplace /*replace*/) override {
        return nullptr;
    }
};

class BatchFactory : public tests::staging_fixture_t {
  protected:
    BatchFactory() {
        util::CFileInfo info;
        info.type = util::EFileType::eRegular;
        info.owner.id = ::geteuid();
        info.group.id = ::getegid();
        info.mode = 0644;
        made_.AddFile("new", info, "text");
    }

    std::string Load(const std::string& serial) {
        io::binary_stream_tt stream(
            std::make_shared<io::mem_dev_tt<std::string>>(std::make_shared<std::string>(serial)));
        return TextOf([&] { token_ = factory_.LoadToken("BatchFileUploadToken", stream); });
    }
    dev_t Create(unsigned long size, bool incremental = false, bool overwrite = false) {
        return factory_.CreateWriteDev(made_.Token(), incremental, &size, overwrite);
    }

    batch_factory_t factory_;
    tests::batch_maker_t made_;
    std::shared_ptr<io::area::IAreaDevToken> token_;
};

/// The start of a token: its count, total and flags.
std::string Head(std::uint32_t count) {
    const auto bytes = std::make_shared<std::string>();
    io::binary_stream_tt stream(std::make_shared<io::mem_dev_tt<std::string>>(bytes));
    stream.WriteU32(count);
    stream.WriteU64(100);
    stream.WriteFlag(true);
    stream.WriteFlag(false);
    return *bytes;
}

std::string Text(std::uint32_t length, const std::string& text) {
    return std::string(reinterpret_cast<const char*>(&length), 4) + text;
}

TEST_F(BatchFactory, ServesTheTypeWordOfBatches) {
    std::vector<std::string> types;
    factory_.EnumTokenTypes(types);
    EXPECT_EQ(types, std::vector<std::string>{"BatchFileUploadToken"});
    io::binary_stream_tt stream(std::make_shared<io::mem_dev_tt<std::string>>());
    EXPECT_EQ(TextOf([&] { factory_.LoadToken("file", stream); }),
              "Token type 'file' is not supported by bacth area dev factory.");
}

TEST_F(BatchFactory, ReadsATokenAsItWasWritten) {
    const auto bytes = std::make_shared<std::string>();
    io::binary_stream_tt stream(std::make_shared<io::mem_dev_tt<std::string>>(bytes));
    const CBatchAreaDevToken token({{kName, "a", 1}, {"x", std::string(4095, 'p'), 2}}, 77, true, false);
    token.Serial(stream);
    EXPECT_EQ(Load(*bytes), "");
    const auto* read = dynamic_cast<CBatchAreaDevToken*>(token_.get());
    ASSERT_NE(read, nullptr);
    EXPECT_EQ(read->GetItems(), token.GetItems());
    EXPECT_EQ(read->GetTotal(), 77U);
    EXPECT_TRUE(read->GetFlagA());
    EXPECT_FALSE(read->GetFlagB());
}

TEST_F(BatchFactory, TokenThatNoBatchHasIsRefusedBeforeItIsRead) {
    const std::string context = "Failed to deserialize batch file upload area token.\n";
    EXPECT_EQ(Load(Head(0)), context + "A batch of [0] entries is refused: it has 1 to [512].");
    EXPECT_EQ(Load(Head(513)), context + "A batch of [513] entries is refused: it has 1 to [512].");
    EXPECT_EQ(Load(Head(0xFFFFFFFF)), context + "A batch of [4294967295] entries is refused: it has 1 to [512].");
    EXPECT_EQ(Load(Head(1) + Text(54, "")),
              context + "String of [54] bytes in the binary stream is longer than the allowed [53].");
    EXPECT_EQ(Load(Head(1) + Text(1, "x") + Text(4096, "")),
              context + "String of [4096] bytes in the binary stream is longer than the allowed [4095].");
    EXPECT_NE(Load(Head(2) + Text(1, "x") + Text(1, "y") + std::string(8, '\0')), "") << "the second is missing";
}

TEST_F(BatchFactory, BatchReachesTheThreadsReceiver) {
    const receiver_scope_t scope(Receiver());
    const std::string frame = tests::BatchFrame(made_.stream);
    const dev_t device = Create(frame.size());
    device->Write(tests::AreaOf(frame, 0));
    device->Finish(nullptr);
    EXPECT_TRUE(Commit(1).empty());
    EXPECT_EQ(tests::ReadFile(Inside() / "new"), "text");
}

TEST_F(BatchFactory, RefusesWhatIsNoBatch) {
    const receiver_scope_t scope(Receiver());
    unsigned long size = 100;
    EXPECT_EQ(TextOf([&] { factory_.CreateWriteDev(nullptr, false, &size, false); }),
              "Token [] is not that of a batch.");
    EXPECT_EQ(
        TextOf([&] { factory_.CreateWriteDev(std::make_shared<item_token_t>(File("new")), false, &size, false); }),
        "Token [agent-item] is not that of a batch.");
    EXPECT_EQ(TextOf([&] { Create(100, true); }), "Incremental batches are not served.");
    EXPECT_EQ(TextOf([&] { Create(100, false, true); }), "A batch is refused that says two things about overwriting.");
    EXPECT_EQ(TextOf([&] { Create(0); }), "A batch of [0] bytes is refused: it has [13] to [16777216].");
    EXPECT_EQ(TextOf([&] { factory_.CreateWriteDev(made_.Token(), false, nullptr, false); }),
              "A batch of [0] bytes is refused: it has [13] to [16777216].");
    made_.items.front().firstPath = "../1";
    EXPECT_EQ(TextOf([&] { Create(100); }), "[../1] names no entry of a batch.");
}

TEST_F(BatchFactory, RefusesWhereNobodyTakesBatches) {
    EXPECT_EQ(TextOf([&] { Create(100); }), "Batches are not received here.");
    const receiver_scope_t scope(std::make_shared<single_receiver_t>());
    EXPECT_EQ(TextOf([&] { Create(100); }), "Batches are not received here.");
}

}  // namespace
}  // namespace agent::batch
