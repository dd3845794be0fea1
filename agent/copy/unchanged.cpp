#include "agent/copy/unchanged.h"

namespace agent::copy {

namespace {

// The receiver sets an owner by name where it knows the name and by number where it does not. Two different names for
// one number count as different: at worst an item is copied that need not be.
bool is_same_owner(const util::SPrincipal& ours, const util::SPrincipal& theirs, bool numeric) {
    if (numeric || ours.name.empty() || theirs.name.empty()) {
        return ours.id == theirs.id;
    }
    return ours.name == theirs.name;
}

bool is_same_shape(const object_brief_t& ours, const object_brief_t& theirs) {
    switch (ours.kind) {
        case EEntryKind::eFile:
            return ours.size == theirs.size && ours.mode == theirs.mode;
        case EEntryKind::eDirectory:
            return ours.mode == theirs.mode;
        case EEntryKind::eLink:
            return ours.target == theirs.target;
        default:
            return false;
    }
}

}  // namespace

bool IsUnchanged(const object_brief_t& ours, const object_brief_t& theirs, const sameness_t& rules) {
    if (ours.kind != theirs.kind || !is_same_shape(ours, theirs)) {
        return false;
    }
    const bool timed = ours.kind != EEntryKind::eFile || rules.fileTimes;
    if (timed && ours.modificationTime != theirs.modificationTime) {
        return false;
    }
    return !rules.owners || (is_same_owner(ours.owner, theirs.owner, rules.numericOwner) &&
                             is_same_owner(ours.group, theirs.group, rules.numericOwner));
}

}  // namespace agent::copy
