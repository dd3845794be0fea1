#include "agent/send/remote_file.h"

#include <exception>
#include <string_view>
#include <utility>

#include "agent/staging/receiver_scope.h"
#include "agent/token/item_token.h"
#include "brannock/transmission/transmission_cfg.h"
#include "mirrowen/compat/compatibility_info.h"
#include "mirrowen/exc/regen.h"
#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/io/acknowledge_protocol.h"
#include "mirrowen/io/binary_stream.h"
#include "mirrowen/io/in_out.h"
#include "mirrowen/logging/log_exc.h"
#include "tarn/upload/file_upload_srv.h"

namespace agent::send {

namespace {

constexpr std::string_view kFailed = "Failed to read [%1].";

/// Nobody watches the dialogue.
class no_console_t final : public io::IInOut {
  public:
    void Print(std::string_view) override {}
};

std::string RootText(const std::exception& error) {
    try {
        std::rethrow_exception(exc::RootCause(std::current_exception()));
    } catch (const std::exception& root) {
        return root.what();
    } catch (...) {
        return error.what();
    }
}

}  // namespace

std::shared_ptr<remote_file_t> remote_file_t::Open(net::connection_t connection, const send_request_t& request,
                                                   std::string shown, const net::remote_options_t& options,
                                                   give_back_t giveBack) {
    std::shared_ptr<remote_file_t> file(
        new remote_file_t(std::move(connection), request, std::move(shown), options, std::move(giveBack)));
    file->Begin();
    return file;
}

remote_file_t::remote_file_t(net::connection_t connection, const send_request_t& request, std::string shown,
                             const net::remote_options_t& options, give_back_t giveBack)
    : request_(request),
      shown_(std::move(shown)),
      giveBack_(std::move(giveBack)),
      pipe_(std::make_shared<area_pipe_t>(shown_, options.stop)),
      receiver_(std::make_shared<one_item_receiver_t>(request_, pipe_)),
      connection_(std::move(connection)) {}

remote_file_t::~remote_file_t() {
    pipe_->Leave();
    if (receiving_.valid()) {
        connection_.channel->Cancel();
        receiving_.wait();
    }
}

void remote_file_t::Begin() {
    try {
        Ask();
    } catch (const std::exception&) {
        // The far end may wait for the next request.
        SayEnd(connection_);
        exc::RegenExc(kFailed, shown_);
    }
    receiving_ = connection_.channel->Run([this] { Receive(); });
    if (auto announced = receiver_->WaitAnnounced()) {
        announced_ = *std::move(announced);
    } else {
        ReadNext();  // throws why none came
    }
}

void remote_file_t::Ask() {
    io::binary_stream_tt stream(connection_.channel);
    WriteRequest(stream, request_);
    stream.Flush();
    io::acknowledge_protocol_t(stream).WaitAck();
    notes_ = ReadNotes(stream);
}

// On a thread of the connection; whoever reads hears of every failure by the pipe. Only of its innermost reason: what
// lies around it speaks of commands and uploads, of which a reader knows nothing.
void remote_file_t::Receive() {
    try {
        ReceiveItem();
        pipe_->Close();
    } catch (const std::exception& error) {
        pipe_->Fail(RootText(error));
    }
    receiver_->Close();
}

void remote_file_t::ReceiveItem() {
    const receiver_scope_t scope(receiver_);
    no_console_t console;
    tarn::file_upload_srv_t server(connection_.channel, console, false, brannock::transmission::kTransportVersion,
                                   compat::SCompatibilityInfo{});
    server.ServeOnlyItemsOf(item_token_t::GetTypeString());
    server.HandleCmds(nullptr);
    receiver_->CheckTaken();
    changed_ = server.ReadFlag();
}

std::shared_ptr<io::area::IArea> remote_file_t::ReadNext() {
    try {
        std::shared_ptr<io::area::IArea> area = pipe_->Pop();
        if (!area && receiving_.valid()) {
            receiving_.get();
            giveBack_(std::move(connection_));
        }
        return area;
    } catch (const std::exception&) {
        exc::RegenExc(kFailed, shown_);
    }
}

void SayEnd(const net::connection_t& connection) noexcept {
    try {
        io::binary_stream_tt stream(connection.channel);
        stream.WriteU32(static_cast<std::uint32_t>(ERequest::eEnd));
        stream.Flush();
    } catch (const std::exception& error) {
        logging::LogExc(error, "Failed to end a connection.");
    }
}

}  // namespace agent::send
