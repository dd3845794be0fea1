#include "agent/confine/names_client.h"

#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>

#include "mirrowen/logging/log_section.h"

namespace agent {

namespace {

constinit logging::log_section_t g_log("confine");

}  // namespace

std::string names_client_t::GetUserName(std::uint32_t id) {
    return Ask(ENameQuestion::eUserName, id, {}).name;
}

std::string names_client_t::GetGroupName(std::uint32_t id) {
    return Ask(ENameQuestion::eGroupName, id, {}).name;
}

std::optional<std::uint32_t> names_client_t::FindUser(const std::string& name) {
    const name_message_t answer = Ask(ENameQuestion::eFindUser, 0, name);
    return answer.code != 0 ? std::optional(answer.number) : std::nullopt;
}

std::optional<std::uint32_t> names_client_t::FindGroup(const std::string& name) {
    const name_message_t answer = Ask(ENameQuestion::eFindGroup, 0, name);
    return answer.code != 0 ? std::optional(answer.number) : std::nullopt;
}

void names_client_t::Close() {
    const synch::lock_t lock(exchanging_);
    socket_.reset();
}

name_message_t names_client_t::Ask(ENameQuestion question, std::uint32_t number, const std::string& name) {
    if (name.size() > kMaxNameInMessage) {
        return {};
    }
    const synch::lock_t lock(exchanging_);
    return Exchange({0, static_cast<std::uint32_t>(question), number, name}).value_or(name_message_t());
}

std::optional<name_message_t> names_client_t::Exchange(name_message_t question) {
    while (socket_ && answered_ != asked_ && IsReadable({})) {
        Receive();
    }
    if (!socket_) {
        return std::nullopt;
    }
    if (answered_ != asked_) {
        g_log.warn("The look-up of an owner takes long; [%1] counts as unknown.",
                   question.name.empty() ? std::to_string(question.number) : question.name);
        return std::nullopt;
    }
    question.id = ++asked_;
    const std::string bytes = EncodeNameMessage(question);
    const synch::deadline_t deadline = synch::deadline_t::After(kPatience);
    ssize_t sent = -1;
    do {
        sent = ::send(socket_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    } while (sent < 0 && errno == EINTR);
    if (sent != static_cast<ssize_t>(bytes.size())) {
        GiveUp();
        return std::nullopt;
    }
    return Await(asked_, deadline);
}

std::optional<name_message_t> names_client_t::Await(std::uint32_t id, const synch::deadline_t& deadline) {
    while (socket_) {
        if (IsReadable(deadline.NextSlice())) {
            std::optional<name_message_t> answer = Receive();
            if (answer && answer->id == id) {
                return answer;
            }
        } else if (deadline.IsExpired()) {
            g_log.warn("The look-up of an owner has no answer after %1 s.", kPatience.count());
            return std::nullopt;
        }
    }
    return std::nullopt;
}

std::optional<name_message_t> names_client_t::Receive() {
    std::array<char, kMaxNameMessage> bytes{};
    const ssize_t got = ::recv(socket_.get(), bytes.data(), bytes.size(), MSG_DONTWAIT);
    if (got < 0 && (errno == EINTR || errno == EAGAIN)) {
        return std::nullopt;
    }
    std::optional<name_message_t> answer;
    if (got > 0) {
        answer = DecodeNameMessage({bytes.data(), static_cast<std::size_t>(got)});
    }
    if (!answer) {
        GiveUp();
        return std::nullopt;
    }
    answered_ = answer->id;
    return answer;
}

bool names_client_t::IsReadable(std::chrono::milliseconds wait) {
    pollfd waiting{socket_.get(), POLLIN, 0};
    return ::poll(&waiting, 1, static_cast<int>(wait.count())) > 0;
}

void names_client_t::GiveUp() {
    socket_.reset();
    g_log.err("The process that looks up owners' names has ended; owners go by their numbers from now on.");
}

}  // namespace agent
