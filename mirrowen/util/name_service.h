#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "mirrowen/export.h"

namespace util {

/// Translates between owners' names and numbers. Replaceable: a process that is confined to a root cannot read the
/// host's accounts itself, and tests bring their own. Any thread.
class MIRROWEN_API IUserNames {
  public:
    virtual ~IUserNames();
    /// The user's or group's name; empty for a number that nobody has or that cannot be looked up.
    virtual std::string GetUserName(std::uint32_t id) = 0;
    virtual std::string GetGroupName(std::uint32_t id) = 0;
    /// The number behind a name, or nothing.
    virtual std::optional<std::uint32_t> FindUser(const std::string& name) = 0;
    virtual std::optional<std::uint32_t> FindGroup(const std::string& name) = 0;
};

/// The service in force: the host's account databases (getpwuid_r(3) and its kin; a look-up that fails for another
/// reason than absence leaves a warning in the log; answers are remembered for half a minute), unless another one was
/// put in place.
MIRROWEN_API IUserNames& user_names() noexcept;

/// Puts `replacement` in force for the life of this object; one at a time.
class MIRROWEN_API scoped_user_names_t {
  public:
    explicit scoped_user_names_t(IUserNames& replacement) noexcept;
    ~scoped_user_names_t();
    scoped_user_names_t(const scoped_user_names_t&) = delete;
    scoped_user_names_t& operator=(const scoped_user_names_t&) = delete;

  private:
    IUserNames* previous_;
};

}  // namespace util
