#include <type_traits>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tarn/batch/batch_area_dev_factory.h"
#include "tarn/batch/batch_area_dev_token.h"
#include "tests/support/caught_error.h"
#include "tests/support/log_lines.h"
#include "tests/support/scripted_dev.h"
#include "tests/support/virtual_slot.h"
#include "tests/support/wire_text.h"

namespace {

using tarn::batch::CBatchAreaDevFactory;
using tarn::batch::CBatchAreaDevToken;
using testing::ElementsAre;
using tests::Throws;

static_assert(std::is_base_of_v<io::area::IAreaDevFactory, CBatchAreaDevFactory>);
static_assert(sizeof(CBatchAreaDevFactory) == sizeof(void*), "no fields");

std::shared_ptr<tests::scripted_dev_t> OneItem() {
    return std::make_shared<tests::scripted_dev_t>(
        tests::wire_text_t().U32(1).U64(3).U32(1).U32(0).String("a").String("b").U64(2).Bytes());
}

TEST(BatchAreaDevFactory, OrderOfVirtualFunctionsIsPartOfTheInterface) {
    EXPECT_EQ(tests::VirtualSlot(&CBatchAreaDevFactory::EnumTokenTypes), 1U);
    EXPECT_EQ(tests::VirtualSlot(&CBatchAreaDevFactory::LoadToken), 2U);
    EXPECT_EQ(tests::VirtualSlot(&CBatchAreaDevFactory::CreateReadDev), 3U);
    EXPECT_EQ(tests::VirtualSlot(&CBatchAreaDevFactory::CreateWriteDev), 4U);
    EXPECT_EQ(tests::VirtualSlot(&CBatchAreaDevFactory::CreateWriteDevForHVIR), 5U);
}

TEST(BatchAreaDevFactory, AddsItsTypeToTheList) {
    std::vector<std::string> types{"other"};
    CBatchAreaDevFactory().EnumTokenTypes(types);
    EXPECT_THAT(types, ElementsAre("other", "BatchFileUploadToken"));
}

TEST(BatchAreaDevFactory, LoadsTokensOfItsType) {
    io::binary_stream_tt stream(OneItem());
    const auto token =
        std::dynamic_pointer_cast<CBatchAreaDevToken>(CBatchAreaDevFactory().LoadToken("BatchFileUploadToken", stream));
    ASSERT_NE(token, nullptr);
    EXPECT_THAT(token->GetItems(), ElementsAre(tarn::batch::SFileItemSpec{"a", "b", 2}));
    EXPECT_EQ(token->GetTotal(), 3U);
}

TEST(BatchAreaDevFactory, RefusesOtherTypesWithoutReading) {
    for (const std::string type : {"file", "batchfileuploadtoken", "BatchFileUploadToken ", ""}) {
        const auto channel = OneItem();
        io::binary_stream_tt stream(channel);
        const auto caught = tests::CatchError([&] { CBatchAreaDevFactory().LoadToken(type, stream); });
        EXPECT_THAT(caught, Throws("exc::CRuntimeExc",
                                   "Token type '" + type + "' is not supported by bacth area dev factory."));
        EXPECT_THAT(caught.causes, ElementsAre());
        EXPECT_EQ(channel->position, 0U);
    }
}

TEST(BatchAreaDevFactory, DamagedTokenIsRefusedWithTheTokensText) {
    io::binary_stream_tt stream(std::make_shared<tests::scripted_dev_t>("abc"));
    EXPECT_EQ(tests::CatchError([&] { CBatchAreaDevFactory().LoadToken("BatchFileUploadToken", stream); }).what,
              "Failed to deserialize batch file upload area token.\n"
              "Failed to retrieve value from the binary stream: received less bytes (3) than expected (4).");
}

TEST(BatchAreaDevFactory, OpensNoDevices) {
    CBatchAreaDevFactory factory;
    const auto token = std::make_shared<CBatchAreaDevToken>(std::list<tarn::batch::SFileItemSpec>{}, 0, false, false);
    unsigned long size = 1;
    const tests::log_lines_t log;

    const auto write = tests::CatchError([&] { factory.CreateWriteDev(token, false, &size, true); });
    EXPECT_THAT(write, Throws("exc::CRuntimeExc", "Failed to create write device for batch upload."));
    EXPECT_THAT(write.causes, ElementsAre("Not supported."));
    EXPECT_THAT(write.causeTypes, ElementsAre("exc::CRuntimeExc"));

    const auto read = tests::CatchError([&] { factory.CreateReadDev(token); });
    EXPECT_THAT(read, Throws("exc::CRuntimeExc", "Failed to create read device for batch upload."));
    EXPECT_THAT(read.causes, ElementsAre("Not supported."));
    EXPECT_THAT(read.causeTypes, ElementsAre("exc::CRuntimeExc"));
    EXPECT_EQ(log.Trace("exc").size(), 2U);

    const auto hvir = tests::CatchError([&] { factory.CreateWriteDevForHVIR(token, &size); });
    EXPECT_THAT(hvir, Throws("exc::CRuntimeExc", "Batch processing does not support HVIR."));
    EXPECT_THAT(hvir.causes, ElementsAre());
    EXPECT_EQ(log.Trace("exc").size(), 2U);
}

TEST(BatchAreaDevFactory, RefusesWithoutATokenAndASizeAlike) {
    CBatchAreaDevFactory factory;
    EXPECT_EQ(tests::CatchError([&] { factory.CreateWriteDev(nullptr, true, nullptr, false); }).message,
              "Failed to create write device for batch upload.");
    EXPECT_EQ(tests::CatchError([&] { factory.CreateReadDev(nullptr); }).message,
              "Failed to create read device for batch upload.");
    EXPECT_EQ(tests::CatchError([&] { factory.CreateWriteDevForHVIR(nullptr, nullptr); }).message,
              "Batch processing does not support HVIR.");
}

}  // namespace
