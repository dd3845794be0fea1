#include "agent/tree/entry_kind.h"

namespace agent {

EEntryKind KindOf(mode_t mode) noexcept {
    switch (mode & S_IFMT) {
        case S_IFDIR:
            return EEntryKind::eDirectory;
        case S_IFLNK:
            return EEntryKind::eLink;
        case S_IFIFO:
            return EEntryKind::eFifo;
        case S_IFSOCK:
            return EEntryKind::eSocket;
        case S_IFCHR:
        case S_IFBLK:
            return EEntryKind::eDevice;
        default:
            return EEntryKind::eFile;
    }
}

bool IsSpecial(EEntryKind kind) noexcept {
    return kind == EEntryKind::eFifo || kind == EEntryKind::eSocket || kind == EEntryKind::eDevice;
}

const char* NameOfKind(EEntryKind kind) noexcept {
    switch (kind) {
        case EEntryKind::eFile:
            return "file";
        case EEntryKind::eDirectory:
            return "directory";
        case EEntryKind::eLink:
            return "link";
        case EEntryKind::eFifo:
            return "FIFO";
        case EEntryKind::eSocket:
            return "socket";
        case EEntryKind::eDevice:
            break;
    }
    return "device";
}

}  // namespace agent
