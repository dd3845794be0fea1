#include "agent/net/receive_session.h"

#include <string_view>

#include "mirrowen/compat/compatibility_info.h"
#include "mirrowen/io/in_out.h"
#include "tarn/upload/file_upload_srv.h"

namespace agent::net {

namespace {

/// A receiving agent has no console: nobody would read a progress display.
class no_console_t final : public io::IInOut {
  public:
    void Print(std::string_view) override {}
};

}  // namespace

void RunReceiveSession(const std::shared_ptr<session_channel_t>& channel, std::uint32_t transportVersion) {
    no_console_t console;
    tarn::file_upload_srv_t server(channel, console, false, transportVersion, compat::SCompatibilityInfo{});
    server.HandleCmds(nullptr);
    channel->Flush();
}

}  // namespace agent::net
