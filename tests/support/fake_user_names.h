#pragma once

#include <map>
#include <optional>
#include <string>

#include "mirrowen/util/name_service.h"

namespace tests {

/// Accounts as a test wants them, in force for the life of this object.
class fake_user_names_t final : public util::IUserNames {
  public:
    fake_user_names_t() : scope_(*this) {}

    std::string GetUserName(std::uint32_t id) override { return NameOf(users, id); }
    std::string GetGroupName(std::uint32_t id) override { return NameOf(groups, id); }
    std::optional<std::uint32_t> FindUser(const std::string& name) override { return Find(users, name); }
    std::optional<std::uint32_t> FindGroup(const std::string& name) override { return Find(groups, name); }

    std::map<std::string, std::uint32_t> users;
    std::map<std::string, std::uint32_t> groups;

  private:
    using accounts_t = std::map<std::string, std::uint32_t>;

    static std::string NameOf(const accounts_t& accounts, std::uint32_t id) {
        for (const auto& [name, number] : accounts) {
            if (number == id) {
                return name;
            }
        }
        return {};
    }

    static std::optional<std::uint32_t> Find(const accounts_t& accounts, const std::string& name) {
        const auto found = accounts.find(name);
        return found == accounts.end() ? std::nullopt : std::optional(found->second);
    }

    util::scoped_user_names_t scope_;
};

}  // namespace tests
