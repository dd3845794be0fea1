#pragma once

namespace agent {

/// Whether this process can give files to any owner, so that an owner that differs from the wanted one is a difference
/// and not a lack of privilege: it has the capability to change owners, and its user namespace has more owners than
/// itself. To be asked before a process shuts itself in: afterwards the namespace can no longer be seen.
bool CanGiveAnyOwner();

}  // namespace agent
