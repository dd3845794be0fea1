#include "agent/send/send_request.h"

#include <gtest/gtest.h>

#include "agent/root/name_rules.h"
#include "brannock/transmission/entry_reports.h"
#include "tests/support/caught_error.h"
#include "tests/support/format_example.h"
#include "tests/support/scripted_dev.h"
#include "tests/support/upload_kit.h"

namespace agent::send {
namespace {

using brannock::transmission::kMaxReports;
using tests::message_t;

io::binary_stream_tt StreamOf(const std::string& bytes) {
    return io::binary_stream_tt(std::make_shared<tests::scripted_dev_t>(bytes));
}

TEST(SendRequest, HasTheDocumentedBytesAndComesBack) {
    const send_request_t request{"a/b", 7, 65536, io::block::EBufTransformType::eZstd};
    const std::string bytes = tests::BytesWritten([&](io::binary_stream_tt& stream) { WriteRequest(stream, request); });
    EXPECT_EQ(bytes, message_t().U32(1).Text("a/b").U64(7).U32(65536).U32(2).Bytes());
    auto stream = StreamOf(bytes);
    EXPECT_EQ(stream.ReadU32(), 1U);
    EXPECT_EQ(ReadRequest(stream), request);
}

TEST(SendRequest, IsTheOneOfTheDocuments) {
    const send_request_t request{"a/b", 7, 65536, io::block::EBufTransformType::eLz4};
    EXPECT_EQ(tests::BytesWritten([&](io::binary_stream_tt& stream) { WriteRequest(stream, request); }),
              tests::FormatExample("Send service", "docs/protocol.md"));
}

TEST(SendRequest, PathLongerThanANameIsRefusedBeforeItIsRead) {
    auto stream = StreamOf(message_t().U32(kMaxNameBytes + 1).Bytes());
    EXPECT_TRUE(tests::CatchError([&] { ReadRequest(stream); }).thrown);
}

TEST(SendNotes, ComeBackEscapedAndCut) {
    const std::vector<copy::copy_note_t> notes = {{"a\nb", "no\x1b[1m"}, {"c", std::string(600, 'x')}};
    auto stream = StreamOf(tests::BytesWritten([&](io::binary_stream_tt& out) { WriteNotes(out, notes); }));
    const auto read = ReadNotes(stream);
    ASSERT_EQ(read.size(), 2U);
    EXPECT_EQ(read[0].path, "a\\nb");
    EXPECT_EQ(read[0].text, "no\\x1b[1m");
    EXPECT_EQ(read[1].text, std::string(brannock::transmission::kMaxReportText, 'x'));
}

TEST(SendNotes, OnlySoManyAreSentAndMoreAreRefused) {
    const std::vector<copy::copy_note_t> notes(kMaxReports + 1, {"a", "b"});
    auto stream = StreamOf(tests::BytesWritten([&](io::binary_stream_tt& out) { WriteNotes(out, notes); }));
    EXPECT_EQ(ReadNotes(stream).size(), kMaxReports);
    auto longer = StreamOf(message_t().U32(kMaxReports + 1).Bytes());
    EXPECT_THAT(tests::CatchError([&] { ReadNotes(longer); }),
                tests::ThrowsText("List of [1025] notes is longer than the allowed [1024]."));
}

}  // namespace
}  // namespace agent::send
