#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "agent/confine/name_message.h"
#include "mirrowen/posix/unique_fd.h"
#include "mirrowen/synch/deadline.h"
#include "mirrowen/synch/mutex.h"
#include "mirrowen/util/name_service.h"

namespace agent {

/// Names and numbers of owners as another process knows them (see AnswerNames).
///
/// Nobody waits longer than kPatience for an answer, and while one is overdue every other question is answered with
/// "unknown" at once; both leave a warning in the log. When the far end has gone, all is unknown from then on, said
/// once in the log as an error. Any thread.
class names_client_t final : public util::IUserNames {
  public:
    static constexpr std::chrono::seconds kPatience{10};

    /// Takes over a connected socket, SOCK_SEQPACKET.
    explicit names_client_t(posix::unique_fd_t socket) : socket_(std::move(socket)) {}

    std::string GetUserName(std::uint32_t id) override;
    std::string GetGroupName(std::uint32_t id) override;
    std::optional<std::uint32_t> FindUser(const std::string& name) override;
    std::optional<std::uint32_t> FindGroup(const std::string& name) override;

    /// Tells the far end that nothing more will be asked.
    void Close();

  private:
    name_message_t Ask(ENameQuestion question, std::uint32_t number, const std::string& name);

    std::optional<name_message_t> Exchange(name_message_t question) REQUIRES(exchanging_);
    std::optional<name_message_t> Await(std::uint32_t id, const synch::deadline_t& deadline) REQUIRES(exchanging_);
    std::optional<name_message_t> Receive() REQUIRES(exchanging_);
    bool IsReadable(std::chrono::milliseconds wait) REQUIRES(exchanging_);
    void GiveUp() REQUIRES(exchanging_);

    synch::mutex_t exchanging_;
    posix::unique_fd_t socket_ GUARDED_BY(exchanging_);
    std::uint32_t asked_ GUARDED_BY(exchanging_) = 0;     // the last question's number
    std::uint32_t answered_ GUARDED_BY(exchanging_) = 0;  // that of the last answer
};

}  // namespace agent
