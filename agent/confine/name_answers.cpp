#include "agent/confine/name_answers.h"

#include <sys/socket.h>

#include <array>
#include <cerrno>

#include "agent/confine/name_message.h"

namespace agent {

namespace {

std::optional<name_message_t> Receive(int socket) {
    std::array<char, kMaxNameMessage> bytes{};
    ssize_t got = -1;
    do {
        // MSG_TRUNC: the length that was sent, so that a message that is too long is seen to be.
        got = ::recv(socket, bytes.data(), bytes.size(), MSG_TRUNC);
    } while (got < 0 && errno == EINTR);
    if (got <= 0 || static_cast<std::size_t>(got) > bytes.size()) {
        return std::nullopt;
    }
    return DecodeNameMessage({bytes.data(), static_cast<std::size_t>(got)});
}

bool Send(int socket, const name_message_t& answer) {
    const std::string bytes = EncodeNameMessage(answer);
    ssize_t sent = -1;
    do {
        sent = ::send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    } while (sent < 0 && errno == EINTR);
    return sent == static_cast<ssize_t>(bytes.size());
}

void SetName(name_message_t& answer, std::string name) {
    if (!name.empty() && name.size() <= kMaxNameInMessage) {
        answer.code = 1;
        answer.name = std::move(name);
    }
}

void SetNumber(name_message_t& answer, std::optional<std::uint32_t> number) {
    answer.code = number ? 1 : 0;
    answer.number = number.value_or(0);
}

// False for what is no question.
bool Answer(util::IUserNames& names, const name_message_t& question, name_message_t& answer) {
    switch (static_cast<ENameQuestion>(question.code)) {
        case ENameQuestion::eUserName:
            SetName(answer, names.GetUserName(question.number));
            return true;
        case ENameQuestion::eGroupName:
            SetName(answer, names.GetGroupName(question.number));
            return true;
        case ENameQuestion::eFindUser:
            SetNumber(answer, names.FindUser(question.name));
            return true;
        case ENameQuestion::eFindGroup:
            SetNumber(answer, names.FindGroup(question.name));
            return true;
    }
    return false;
}

}  // namespace

void AnswerNames(int socket, util::IUserNames& names) {
    for (;;) {
        const std::optional<name_message_t> question = Receive(socket);
        if (!question) {
            return;
        }
        name_message_t answer;
        answer.id = question->id;
        if (!Answer(names, *question, answer) || !Send(socket, answer)) {
            return;
        }
    }
}

}  // namespace agent
