#pragma once

#include <string>

class CCorvelCtx;

namespace agent {

/// The mapper that a receiving agent installs in the process's context. Outside a session scope every path passes as it
/// is. On a session's thread a path is a peer's word, and only a safe relative name passes, unchanged, so that the host
/// backend serves it relative to the process's working directory, which is the root that the agent serves.
///
/// Refused with `exc::CRuntimeExc` "Path [%1] is refused: %2." is everything that FindNameFault refuses (absolute
/// paths, "." and "..", empty components, NUL, the staging folder, over-long names), and every path of another backend:
/// anything with "://" in it and the tape form "tdatafs:\\", in any letter case. Names need not be UTF-8. Two forms
/// with
/// "." pass: "." itself, the root, and a safe name with "/." behind it, which exists only when it is a directory.
///
/// What the gate does not do: it judges the words, not what lies on the disk. The host backend opens a passed name by
/// path, so a link that is already below the root is followed wherever it leads, outside included. Keeping the process
/// itself inside its root is the kernel's business; the agent's own item tokens do not go this way but through
/// `confined_root_t`, which follows no link.
std::string MapSessionPath(const std::string& path);

/// Puts MapSessionPath in force in `context`.
void InstallPathGate(CCorvelCtx& context);

}  // namespace agent
