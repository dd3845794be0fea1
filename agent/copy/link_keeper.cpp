#include "agent/copy/link_keeper.h"

namespace agent::copy {

std::optional<link_keeper_t::first_t> link_keeper_t::See(const object_brief_t& file) {
    const auto at = files_.try_emplace(InodeOf(file), file_t{file.links, std::nullopt}).first;
    std::optional<first_t> first = at->second.first;
    if (--at->second.namesLeft == 0) {
        files_.erase(at);
    }
    return first;
}

void link_keeper_t::Keep(const object_brief_t& file, first_t first) {
    const auto at = files_.find(InodeOf(file));
    if (at != files_.end()) {
        at->second.first = std::move(first);
    }
}

void link_keeper_t::Drop(const object_brief_t& file, const std::string& target) {
    const auto at = files_.find(InodeOf(file));
    if (at != files_.end() && at->second.first && at->second.first->target == target) {
        at->second.first.reset();
    }
}

}  // namespace agent::copy
