#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "mirrowen/export.h"
#include "mirrowen/synch/mutex.h"
#include "mirrowen/util/clock.h"
#include "mirrowen/util/name_service.h"

namespace util {

/// Answers of another name service, each asked for once and then given again for a while, "unknown" too: a tree of a
/// million files has a handful of owners. Memory is bounded: beyond kMaxKept answers of a sort all of them are
/// forgotten. Any thread; two that ask for the same thing at once may both reach the other service.
class MIRROWEN_API remembering_user_names_t final : public IUserNames {
  public:
    static constexpr std::size_t kMaxKept = 4096;

    /// `source` must outlive this object; an answer is given again for as long as `kept`.
    remembering_user_names_t(IUserNames& source, std::chrono::seconds kept) noexcept;
    ~remembering_user_names_t() override;

    std::string GetUserName(std::uint32_t id) override;
    std::string GetGroupName(std::uint32_t id) override;
    std::optional<std::uint32_t> FindUser(const std::string& name) override;
    std::optional<std::uint32_t> FindGroup(const std::string& name) override;

  private:
    template <class Answer>
    struct kept_t {
        Answer answer;
        IClock::steady_point_t until;
    };
    template <class Key, class Answer>
    using memory_t = std::map<Key, kept_t<Answer>>;
    using names_t = memory_t<std::uint32_t, std::string>;
    using numbers_t = memory_t<std::string, std::optional<std::uint32_t>>;

    template <class Key, class Answer, class Ask>
    Answer RecallOrAsk(memory_t<Key, Answer>& memory, const Key& key, Ask ask);

    IUserNames& source_;
    const std::chrono::seconds kept_;
    synch::mutex_t mutex_;
    names_t userNames_ GUARDED_BY(mutex_);
    names_t groupNames_ GUARDED_BY(mutex_);
    numbers_t users_ GUARDED_BY(mutex_);
    numbers_t groups_ GUARDED_BY(mutex_);
};

}  // namespace util
