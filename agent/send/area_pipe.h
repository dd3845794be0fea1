#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <memory>
#include <stop_token>
#include <string>

#include "mirrowen/io/area/area.h"
#include "mirrowen/synch/mutex.h"

namespace agent::send {

/// Hands the areas of one item, in order, from the thread that receives them to the one that reads them. It holds few
/// of them (kMaxAreas, or kMaxBytes of data, but always room for one), so memory does not depend on the item's size.
/// Whichever side goes first wakes the other. One thread writes, one reads; Leave and Fail may come from any.
class area_pipe_t {
  public:
    static constexpr std::size_t kMaxAreas = 16;
    static constexpr std::size_t kMaxBytes = std::size_t{4} << 20;
    /// How long a writer bears a reader that takes nothing: a person before a pager, a slow disk, but not for ever.
    static constexpr std::chrono::milliseconds kPatience = std::chrono::hours(1);

    /// `name` is for messages. `stop` ends the writer's waits; the reader's end with the writer's.
    area_pipe_t(std::string name, std::stop_token stop, std::chrono::milliseconds patience = kPatience);

    /// Waits for room. Throws `exc::CRuntimeExc` "Nobody reads [%1] any more.", "Nobody has read of [%1] for %2 s.",
    /// "Reading [%1] was cancelled.".
    void Push(std::shared_ptr<io::area::IArea> area);
    /// Everything has been pushed.
    void Close();
    /// Nothing more comes, for this reason; what was pushed and not read is dropped. (A text: an exception belongs to
    /// the thread that caught it.)
    void Fail(std::string reason) noexcept;

    /// Waits for the next area; none when the pipe was closed and is empty, and again on every later call. Throws
    /// `exc::CRuntimeExc` with the reason when it was failed.
    std::shared_ptr<io::area::IArea> Pop();
    /// The reader wants no more: what is held is dropped and the writer's next Push throws.
    void Leave() noexcept;

  private:
    enum class EState { eOpen, eClosed, eFailed, eLeft };

    bool HasRoom() const REQUIRES(mutex_);
    void WaitForRoom(synch::lock_t& lock) REQUIRES(mutex_);
    void EndWith(EState state, std::string reason) noexcept;

    const std::string name_;
    const std::stop_token stop_;
    const std::chrono::milliseconds patience_;
    synch::mutex_t mutex_;
    std::condition_variable_any changed_;
    EState state_ GUARDED_BY(mutex_) = EState::eOpen;
    std::deque<std::shared_ptr<io::area::IArea>> areas_ GUARDED_BY(mutex_);
    std::size_t bytes_ GUARDED_BY(mutex_) = 0;
    std::string reason_ GUARDED_BY(mutex_);
};

}  // namespace agent::send
