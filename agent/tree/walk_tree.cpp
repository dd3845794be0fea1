#include "agent/tree/walk_tree.h"

#include <cerrno>
#include <exception>
#include <optional>
#include <utility>
#include <vector>

#include "mirrowen/posix/errno_exc.h"

namespace agent {

namespace {

/// A directory on the way down, and how far its entries have been visited.
struct level_t {
    tree_entry_t directory;
    std::vector<tree_entry_t> entries;
    std::size_t next = 0;
};

class walker_t {
  public:
    walker_t(tree_source_t& source, tree_visitor_t& visitor) : source_(source), visitor_(visitor) {}

    void Run(const std::string& top) {
        std::optional<tree_entry_t> first = source_.TryExamine(top);
        if (!first) {
            throw posix::errno_exc_t("Failed to get attributes of [%1]", source_.Shown(top), ENOENT);
        }
        Enter(*std::move(first));
        while (!levels_.empty()) {
            level_t& level = levels_.back();
            if (level.next < level.entries.size()) {
                Visit(std::move(level.entries[level.next++]));
                continue;
            }
            const tree_entry_t left = std::move(level.directory);
            levels_.pop_back();
            visitor_.OnDirectoryLeft(left);
        }
    }

  private:
    void Visit(tree_entry_t entry) {
        if (entry.fault.empty()) {
            Enter(std::move(entry));
        } else {
            visitor_.OnUnreadable(entry.name, entry.fault);
        }
    }

    void Enter(tree_entry_t entry) {
        visitor_.OnEntry(entry);
        if (entry.brief.kind == EEntryKind::eDirectory) {
            level_t level;
            try {
                level.entries = source_.List(entry.name);
            } catch (const std::exception& error) {
                visitor_.OnUnreadable(entry.name, error.what());
            }
            level.directory = std::move(entry);
            levels_.push_back(std::move(level));
        }
    }

    tree_source_t& source_;
    tree_visitor_t& visitor_;
    std::vector<level_t> levels_;
};

}  // namespace

tree_visitor_t::~tree_visitor_t() = default;

void WalkTree(tree_source_t& source, const std::string& top, tree_visitor_t& visitor) {
    walker_t(source, visitor).Run(top);
}

}  // namespace agent
