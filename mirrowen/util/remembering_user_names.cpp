#include "mirrowen/util/remembering_user_names.h"

namespace util {

remembering_user_names_t::remembering_user_names_t(IUserNames& source, std::chrono::seconds kept) noexcept
    : source_(source), kept_(kept) {}

remembering_user_names_t::~remembering_user_names_t() = default;

// The lock is not held while the other service works: it may take its time. The maps are guarded here, where they come
// in as arguments.
template <class Key, class Answer, class Ask>
Answer remembering_user_names_t::RecallOrAsk(memory_t<Key, Answer>& memory, const Key& key, Ask ask) {
    const IClock::steady_point_t now = clock().SteadyNow();
    {
        const synch::lock_t lock(mutex_);
        const auto found = memory.find(key);
        if (found != memory.end() && now < found->second.until) {
            return found->second.answer;
        }
    }
    Answer answer = ask(key);
    const synch::lock_t lock(mutex_);
    if (memory.size() >= kMaxKept) {
        memory.clear();
    }
    memory.insert_or_assign(key, kept_t<Answer>{answer, now + kept_});
    return answer;
}

std::string remembering_user_names_t::GetUserName(std::uint32_t id) NO_THREAD_SAFETY_ANALYSIS {
    return RecallOrAsk(userNames_, id, [this](std::uint32_t key) { return source_.GetUserName(key); });
}

std::string remembering_user_names_t::GetGroupName(std::uint32_t id) NO_THREAD_SAFETY_ANALYSIS {
    return RecallOrAsk(groupNames_, id, [this](std::uint32_t key) { return source_.GetGroupName(key); });
}

std::optional<std::uint32_t> remembering_user_names_t::FindUser(const std::string& name) NO_THREAD_SAFETY_ANALYSIS {
    return RecallOrAsk(users_, name, [this](const std::string& key) { return source_.FindUser(key); });
}

std::optional<std::uint32_t> remembering_user_names_t::FindGroup(const std::string& name) NO_THREAD_SAFETY_ANALYSIS {
    return RecallOrAsk(groups_, name, [this](const std::string& key) { return source_.FindGroup(key); });
}

}  // namespace util
