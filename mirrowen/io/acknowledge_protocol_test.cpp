#include "mirrowen/io/acknowledge_protocol.h"

#include "mirrowen/exc/already_exists_exc.h"
#include "mirrowen/exc/runtime_exc.h"
#include "tests/support/format_example.h"
#include "tests/support/log_capture.h"
#include "tests/support/scripted_dev.h"

namespace io {

namespace {

using std::string_literals::operator""s;

struct dialogue_t {
    explicit dialogue_t(std::string input = {})
        : device(std::make_shared<tests::scripted_dev_t>(std::move(input))), stream(device), acks(stream) {}

    std::shared_ptr<tests::scripted_dev_t> device;
    binary_stream_tt stream;
    acknowledge_protocol_t acks;
};

// What the receiver of exactly these bytes sees: "ok", or the class and text of the error.
std::string Received(const std::string& bytes) {
    dialogue_t receiver(bytes);
    try {
        receiver.acks.WaitAck();
        return receiver.device->position == bytes.size() ? "ok" : "ok, with bytes left";
    } catch (const exc::CAlreadyExistsExc& error) {
        return "exists: " + error.Message();
    } catch (const exc::CRuntimeExc& error) {
        return "error: " + error.Message();
    }
}

TEST(AcknowledgeTest, OkIsAKindWithoutAText) {
    dialogue_t sender;
    sender.acks.SendOk();
    EXPECT_EQ(sender.device->output, "\0\0\0\0"s);
    EXPECT_EQ(sender.device->flushes, 1) << "the peer waits for it";
    EXPECT_EQ(Received(sender.device->output), "ok");
}

TEST(AcknowledgeTest, AnErrorHasTheDocumentedBytes) {
    dialogue_t sender;
    sender.acks.SendErr("no");
    EXPECT_EQ(sender.device->output, tests::FormatExample("Acknowledgement"));
    EXPECT_EQ(sender.device->flushes, 1);
    EXPECT_EQ(Received(sender.device->output), "error: no");
}

TEST(AcknowledgeTest, AlreadyExistsKeepsItsClass) {
    dialogue_t sender;
    sender.acks.SendAlreadyExistsErr("File [a] already exists.");
    EXPECT_EQ(sender.device->output, "\x02\0\0\0\x18\0\0\0File [a] already exists."s);
    EXPECT_EQ(sender.device->flushes, 1);
    EXPECT_EQ(Received(sender.device->output), "exists: File [a] already exists.");
}

TEST(AcknowledgeTest, AnEmptyTextTravels) {
    dialogue_t sender;
    sender.acks.SendErr("");
    EXPECT_EQ(Received(sender.device->output), "error: ");
}

TEST(AcknowledgeTest, LongTextsAreCutWhenTheyAreSent) {
    dialogue_t sender;
    sender.acks.SendErr(std::string(8193, 'x'));
    EXPECT_EQ(sender.device->output, "\x01\0\0\0\0\x20\0\0"s + std::string(8192, 'x'));
    dialogue_t exact;
    exact.acks.SendErr(std::string(8192, 'x'));
    EXPECT_EQ(exact.device->output, sender.device->output);
}

TEST(AcknowledgeTest, TheCutDoesNotTearACharacter) {
    dialogue_t sender;
    std::string text(8191, 'x');
    text += "\xe2\x82\xac tail";
    sender.acks.SendErr(text);
    EXPECT_EQ(sender.device->output, "\x01\0\0\0\xff\x1f\0\0"s + std::string(8191, 'x'));
    dialogue_t junk;
    junk.acks.SendErr(std::string(9000, '\x80'));
    EXPECT_EQ(junk.device->output.size(), 8U + 8189U) << "bytes that are no text are cut somewhere near the limit";
}

TEST(AcknowledgeTest, LongerTextsAreRefusedWhenTheyArrive) {
    EXPECT_EQ(Received("\x01\0\0\0\x01\x20\0\0"s + std::string(8193, 'x')),
              "error: String of [8193] bytes in the binary stream is longer than the allowed [8192].");
    EXPECT_EQ(Received("\x02\0\0\0\0\x20\0\0"s + std::string(8192, 'x')), "exists: " + std::string(8192, 'x'));
}

TEST(AcknowledgeTest, UnknownKindsAreRefused) {
    EXPECT_EQ(Received("\x03\0\0\0"s), "error: Unknown acknowledgement [3] was received.");
    EXPECT_EQ(Received("\0\0\0\x80"s), "error: Unknown acknowledgement [2147483648] was received.");
}

TEST(AcknowledgeTest, APeersControlBytesAreEscapedAndItsLinesKept) {
    EXPECT_EQ(Received("\x01\0\0\0\x0a\0\0\0a\x1b[1m\nb\r\n\x7f"s), "error: a\\x1b[1m\nb\\x0d\n\\x7f");
}

TEST(AcknowledgeTest, PlaceholdersInAPeersTextStay) {
    EXPECT_EQ(Received("\x01\0\0\0\x05\0\0\0%1 %2"s), "error: %1 %2");
}

TEST(AcknowledgeTest, AnAnswerThatEndsEarlyIsAShortRead) {
    EXPECT_EQ(Received("\x01\0"s),
              "error: Failed to retrieve value from the binary stream: received less bytes (2) than expected (4).");
    EXPECT_EQ(Received("\x01\0\0\0\x05\0\0\0abc"s),
              "error: Failed to retrieve value from the binary stream: received less bytes (3) than expected (5).");
}

TEST(AcknowledgeTest, AFailureToSendIsThrown) {
    dialogue_t sender;
    sender.device->failure = "reset by peer";
    EXPECT_THROW(sender.acks.SendOk(), std::runtime_error);
    EXPECT_THROW(sender.acks.SendErr("no"), std::runtime_error);
}

TEST(AcknowledgeTest, SafeSendSwallowsAndLogsAFailure) {
    tests::log_capture_t log;
    dialogue_t sender;
    sender.acks.SafeSendErr("no");
    EXPECT_EQ(sender.device->output, tests::FormatExample("Acknowledgement"));
    EXPECT_TRUE(log.Lines().empty());
    sender.device->failure = "reset by peer";
    sender.acks.SafeSendErr("no");
    ASSERT_EQ(log.Lines().size(), 1U);
    EXPECT_EQ(log.Lines()[0].level, logging::ELevel::eWarn);
    EXPECT_EQ(log.Lines()[0].section, "io");
    EXPECT_EQ(log.Lines()[0].text, "Failed to send the error acknowledgement.");
    EXPECT_EQ(log.Lines()[0].error, "reset by peer");
}

}  // namespace

}  // namespace io
