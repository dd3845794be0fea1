#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "mirrowen/synch/mutex.h"
#include "mirrowen/util/meta_problem.h"

namespace agent {

/// Something about an item that could not be kept or applied although the item itself went well.
struct item_warning_t {
    util::EMetaProblem kind = util::EMetaProblem::eOther;
    std::string path;  ///< as messages show it
    std::string text;  ///< a sentence that names the path
    friend bool operator==(const item_warning_t&, const item_warning_t&) = default;
};

/// Gathers warnings; any thread. It keeps the first kMaxKept and counts the others, so a tree of millions of files that
/// nobody may own does not fill the memory.
class item_warnings_t {
  public:
    static constexpr std::size_t kMaxKept = 1024;

    void Add(item_warning_t warning);
    /// What was kept, oldest first.
    std::vector<item_warning_t> Get() const;
    /// How many were added in all.
    std::size_t Count() const;

  private:
    mutable synch::mutex_t mutex_;
    std::vector<item_warning_t> kept_ GUARDED_BY(mutex_);
    std::size_t count_ GUARDED_BY(mutex_) = 0;
};

/// Sends the calling thread's warnings to `warnings` while it lives; scopes nest, the innermost receives. Made and
/// destroyed on the same thread.
class warning_scope_t {
  public:
    explicit warning_scope_t(std::shared_ptr<item_warnings_t> warnings);
    ~warning_scope_t();
    warning_scope_t(const warning_scope_t&) = delete;
    warning_scope_t& operator=(const warning_scope_t&) = delete;

    /// The calling thread's collector, or none. A device asks when it is made, on the session's thread, and reports
    /// there even when it is finished on another one.
    static std::shared_ptr<item_warnings_t> Current();

  private:
    std::shared_ptr<item_warnings_t> previous_;
};

/// Adds to `warnings`, or, when that is empty, writes a line at warning level to the log section "agent".
void Report(const std::shared_ptr<item_warnings_t>& warnings, item_warning_t warning);

}  // namespace agent
