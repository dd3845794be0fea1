#include <gmock/gmock.h>

#include "tests/edge/edge_kit.h"
#include "tests/edge/raw_frame.h"
#include "tests/edge/scripted_server.h"
#include "tests/support/open_descriptors.h"
#include "tests/support/own_threads.h"
#include "tests/support/transfer_kit.h"

namespace tests {
namespace {

using namespace std::string_literals;
using testing::HasSubstr;

struct server_case_t {
    const char* name;
    scripted_server_t::script_t script;
    const char* error;    ///< what the sender must say
    bool isItem = false;  ///< the item fails, not the copy as a whole
};

constexpr std::uint32_t kHuge = 0xFFFFFFFF;

scripted_server_t::script_t Preamble(std::string answer) {
    return [answer](raw_peer_t& peer) {
        peer.Receive(kClientHelloSize);
        peer.Send(answer);
    };
}

scripted_server_t::script_t Question(const wire_text_t& answer) {
    return [bytes = answer.Bytes()](raw_peer_t& peer) {
        Grant(peer);
        ReadQuestion(peer);
        peer.Send(bytes);
    };
}

scripted_server_t::script_t Item(const wire_text_t& answer) {
    return [bytes = answer.Bytes()](raw_peer_t& peer) {
        Grant(peer);
        AnswerQuestion(peer);
        ReadItem(peer);
        peer.Send(bytes);
        peer.ReceiveAll();
    };
}

// The answer to the item's frames up to its END.
scripted_server_t::script_t Frames(std::string answer) {
    return [answer](raw_peer_t& peer) {
        BeginItem(peer);
        ReadFrame(peer, EFrameType::eEnd);
        peer.Send(answer);
        peer.CloseWrite();
        peer.ReceiveAll();
    };
}

const std::string kOkStatus = StatusFrame({});

std::string Corrupt(const std::string& frame) {
    std::string corrupt = frame;
    corrupt[50] = static_cast<char>(corrupt[50] ^ 1);
    return corrupt;
}

std::vector<server_case_t> Cases() {
    using brannock::transmission::EItemResult;
    const auto refusal = [](std::uint32_t length) {
        return ServerHello(3).substr(0, kServerHelloSize - 4) + wire_text_t().U32(length).Bytes();
    };
    return {
        {"OtherProtocol", Preamble("HTTP/1.1 400 Bad Request\r\n\r\n"), "The peer does not speak this protocol."},
        {"ClosedBeforeThePreamble", Preamble(""), "received less bytes (0) than expected (8)"},
        {"HalfAPreamble", Preamble(ServerHello().substr(0, 50)), "received less bytes"},
        {"Refusal", Preamble(ServerHello(3, "Too many sessions.")),
         "The receiving agent refused the connection: Too many sessions."},
        {"RefusalOf4GiB", Preamble(refusal(kHuge)), "String of [4294967295] bytes"},
        {"ClosedAfterThePreamble", Question(wire_text_t()), "received less bytes (0) than expected (4)"},
        {"UnknownAcknowledgement", Question(wire_text_t().U32(7)), "Unknown acknowledgement [7] was received."},
        {"AcknowledgementTooLong", Question(wire_text_t().U32(1).String(std::string(8193, 'x'))),
         "String of [8193] bytes in the binary stream is longer than the allowed [8192]."},
        {"AcknowledgementOf4GiB", Question(wire_text_t().U32(1).U32(kHuge)), "String of [4294967295] bytes"},
        {"RefusedQuestion", Question(wire_text_t().U32(1).String("not today")), "not today"},
        {"MoreExistThanWereAskedFor", Question(wire_text_t().U32(0).U32(2).String("a").String("b")),
         "List of [2] paths is longer than the allowed [1]."},
        {"ListOf4GiB", Question(wire_text_t().U32(0).U32(1).U32(kHuge)), "String of [4294967295] bytes"},
        {"ItemRefused", Item(wire_text_t().U32(1).String("no room for it")), "no room for it", true},
        {"ItemExists", Item(wire_text_t().U32(2).String("it is there")), "it is there", true},
        {"UnknownItemAnswer", Item(wire_text_t().U32(3)), "Unknown acknowledgement [3] was received.", true},
        {"NoNetworkConfiguration", Item(wire_text_t().U32(0).U32(0).Raw("junk").Zeroes(12)),
         "Invalid network configuration", true},
        {"NetworkConfigurationOf4GiB", Item(wire_text_t().U32(0).U32(0).Raw("TNC1").U32(kHuge)),
         "Invalid network configuration: its length is [4294967295].", true},
        {"ClosedDuringTheFrames", Frames(""), "The far end closed the channel during a transfer.", true},
        {"HalfAFrame", Frames(kOkStatus.substr(0, 40)), "The far end closed the channel during a transfer.", true},
        {"NoFrame", Frames(std::string(80, 'x')), "Broken block stream: a frame starts with [2021161080].", true},
        {"UnknownFrame", Frames(Frame({.type = EFrameType{99}})), "Broken block stream: unknown frame type [99].",
         true},
        {"WrongChecksum", Frames(Corrupt(Frame({.type = EFrameType::eBusy}))),
         "Broken block stream: the checksum of a frame is wrong.", true},
        {"FrameOfAnotherItem", Frames(Frame({.type = EFrameType::eBusy, .item = 5})),
         "Broken block stream: a frame of item [5] came during item [0].", true},
        {"DataFromTheReceiver", Frames(DataFrame(0, 0, "x")),
         "Broken block stream: a frame of type [1] came from the receiver.", true},
        {"CreditOutOfReach", Frames(Frame({.type = EFrameType::eCredit, .block = ~std::uint64_t{0}})),
         "Broken block stream: a credit up to block", true},
        {"StatusOf4GiB", Frames(wire_text_t().Raw("TBLK").U16(7).U16(0).U32(kHuge).Zeroes(68).Bytes()),
         "Broken block stream: a frame of type [7] has [4294967295] bytes.", true},
        {"StatusWithALyingText",
         Frames(Frame({.type = EFrameType::eStatus}, wire_text_t().U32(1).U32(8000).Raw("x").Bytes())),
         "Broken block stream: a payload is shorter than what it holds.", true},
        {"StatusFailed", Frames(StatusFrame({EItemResult::eFailed, "the disk is\x1b full", {}})),
         "the disk is\\x1b full", true},
        {"StatusExists", Frames(StatusFrame({EItemResult::eAlreadyExists, "came in between", {}})), "came in between",
         true},
        {"StatusBeforeTheEnd",
         [](raw_peer_t& peer) {
             BeginItem(peer);
             peer.Send(kOkStatus);
             peer.CloseWrite();
             peer.ReceiveAll();
         },
         "Broken block stream: the item was acknowledged before its end.", true},
        {"NoFinalAcknowledgement", Frames(kOkStatus), "received less bytes (0) than expected (4)", true},
        {"FinalAcknowledgementFails", Frames(kOkStatus + wire_text_t().U32(1).String("lost at last").Bytes()),
         "lost at last", true},
    };
}

class HostileServer : public edge_fixture_t, public testing::WithParamInterface<server_case_t> {};

TEST_P(HostileServer, EndsTheCopyWithItsReason) {
    WriteFile(Source("thing"), Noise(9 * 4096 * 8));
    agent::copy::copy_options_t options;
    options.overwrite = options.force = true;  // no question before the item
    options.blockSize = 4096;
    options.compression = io::block::EBufTransformType::eNone;
    // A script whose end needs no credit gives a file that fits into the window.
    if (GetParam().name != "StatusBeforeTheEnd"s) {
        WriteFile(Source("thing"), "seven");
    }
    const std::size_t descriptors = OpenDescriptors();
    const std::size_t threads = OwnThreads();
    {
        scripted_server_t server(GetParam().script);
        const copy_outcome_t outcome = CopyAll({Source("thing")}, Remote(server.Port(), "out"), options);
        EXPECT_NO_THROW(server.Join());
        EXPECT_THAT(outcome.Failure(), HasSubstr(GetParam().error));
        EXPECT_EQ(outcome.thrown.empty(), GetParam().isItem) << outcome.Failure();
        EXPECT_EQ(outcome.report.failed.size(), GetParam().isItem ? 1U : 0U);
        EXPECT_EQ(outcome.report.files, 0U);
        if (GetParam().isItem && outcome.report.failed.size() == 1) {
            EXPECT_EQ(outcome.report.failed.front().path, Source("thing"));
        }
    }
    EXPECT_EQ(OpenDescriptors(), descriptors);
    EXPECT_TRUE(IsBackAtThreads(threads));
}

INSTANTIATE_TEST_SUITE_P(All, HostileServer, testing::ValuesIn(Cases()),
                         [](const auto& param) { return param.param.name; });

}  // namespace
}  // namespace tests
