#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "agent/root/confined_root.h"
#include "mirrowen/posix/syscalls.h"
#include "tests/support/faulty_syscalls.h"
#include "tests/support/step_hook.h"
#include "tests/support/temp_dir.h"
#include "tests/support/tree_snapshot.h"

namespace tests {

/// One operation of a confined root on a name; returns what it read, if it reads.
struct root_operation_t {
    std::string name;
    std::function<std::string(const agent::confined_root_t&, const std::string&)> call;
};

inline std::string ReadAll(posix::posix_file_t& file) {
    std::string text(64, '\0');
    text.resize(file.Read(text.data(), text.size()));
    return text;
}

/// Every operation that takes a name.
inline std::vector<root_operation_t> RootOperations() {
    using agent::confined_root_t;
    using agent::EOrder;
    using agent::EParents;
    using agent::EReplace;
    const auto quiet = [](auto call) {
        return [call](const confined_root_t& root, const std::string& name) {
            call(root, name);
            return std::string();
        };
    };
    return {
        {"OpenParent", quiet([](auto& root, auto& name) { root.OpenParent(name); })},
        {"OpenParent making", quiet([](auto& root, auto& name) { root.OpenParent(name, EParents::eMake); })},
        {"OpenFile", [](auto& root, auto& name) { return ReadAll(*root.OpenFile(name)); }},
        {"OpenObject", quiet([](auto& root, auto& name) { root.OpenObject(name); })},
        {"OpenDirectory", quiet([](auto& root, auto& name) { root.OpenDirectory(name); })},
        {"CreateFile", quiet([](auto& root, auto& name) { root.CreateFile(name)->Write("evil", 4); })},
        {"MakeDirectory", quiet([](auto& root, auto& name) { root.MakeDirectory(name); })},
        {"MakeLink", quiet([](auto& root, auto& name) { root.MakeLink("evil", name); })},
        {"Stat", quiet([](auto& root, auto& name) { root.Stat(name); })},
        {"TryStat", quiet([](auto& root, auto& name) { root.TryStat(name); })},
        {"ReadLink", quiet([](auto& root, auto& name) { root.ReadLink(name); })},
        {"List", quiet([](auto& root, auto& name) { root.List(name, EOrder::eRaw); })},
        {"RemoveFile", quiet([](auto& root, auto& name) { root.RemoveFile(name); })},
        {"RemoveDirectory", quiet([](auto& root, auto& name) { root.RemoveDirectory(name); })},
        {"Rename from", quiet([](auto& root, auto& name) { root.Rename(name, "moved", EReplace::eYes); })},
        {"Rename to", quiet([](auto& root, auto& name) { root.Rename("top", name, EReplace::eYes); })},
        {"Rename to a free name", quiet([](auto& root, auto& name) { root.Rename("top", name, EReplace::eNo); })},
    };
}

/// A root with one file "a/b/x" and one "top" in it, and beside it a directory that nothing below the root may reach,
/// with the file "b/x" that says "secret".
class root_fixture_t : public testing::Test {
  protected:
    explicit root_fixture_t(agent::EResolver resolver) : wanted_(resolver) {
        if (resolver == agent::EResolver::eWalk) {
            calls_.emplace();
            calls_->Fail<&posix::syscalls_t::openat2>(ENOSYS, 1, std::numeric_limits<int>::max());
        }
        std::filesystem::create_directories(Outside() / "b");
        WriteFile(Outside() / "b/x", "secret");
        std::filesystem::create_directory(Inside());
        MakeTree();
        root_ = agent::confined_root_t::Open(Inside());
    }

    /// For tests that are about the resolver itself; the others hold with either.
    void SkipWithoutKernel() const {
        if (wanted_ != root_->GetResolver()) {
            GTEST_SKIP() << "this kernel, or the sandbox around the test, offers no openat2";
        }
    }

    std::filesystem::path Top() const { return std::filesystem::path(dir_.path()); }
    std::filesystem::path Inside() const { return Top() / "inside"; }
    std::filesystem::path Outside() const { return Top() / "outside"; }
    const agent::confined_root_t& Root() const { return *root_; }
    const std::shared_ptr<agent::confined_root_t>& RootPtr() const { return root_; }

    /// Puts the tree back as it was; the root itself stays the same directory.
    void MakeTree() {
        for (const auto& entry : std::filesystem::directory_iterator(Inside())) {
            std::filesystem::remove_all(entry.path());
        }
        std::filesystem::create_directories(Inside() / "a/b");
        WriteFile(Inside() / "a/b/x", "inside");
        WriteFile(Inside() / "top", "top");
    }

    /// Puts a link to its counterpart outside in the place of "a", "a/b" or "a/b/x"; what was there is moved away.
    void PlantLink(const std::string& name, bool absolute) {
        const std::string target = name == "a" ? "outside" : "outside" + name.substr(1);
        std::filesystem::rename(Inside() / name, Inside() / "moved-away");
        std::string up;
        for (std::size_t depth = 0; depth <= static_cast<std::size_t>(std::count(name.begin(), name.end(), '/'));
             ++depth) {
            up += "../";
        }
        std::filesystem::create_symlink(absolute ? Top() / target : std::filesystem::path(up + target),
                                        Inside() / name);
    }

  private:
    agent::EResolver wanted_;
    temp_dir_t dir_;
    std::optional<faulty_syscalls_t> calls_;
    std::shared_ptr<agent::confined_root_t> root_;
};

}  // namespace tests
