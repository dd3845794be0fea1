#pragma once

#include "mirrowen/util/name_service.h"

namespace agent {

/// Answers the questions that come through `socket` (SOCK_SEQPACKET) from `names`, one after the other, until the far
/// end closes it or sends what is no question. A name longer than a message can carry is answered as unknown.
void AnswerNames(int socket, util::IUserNames& names);

}  // namespace agent
