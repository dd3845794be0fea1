#include "agent/token/item.h"

#include "agent/root/name_rules.h"
#include "mirrowen/exc/runtime_exc.h"

namespace agent {

namespace {

bool HasSecondText(EItemKind kind) noexcept {
    return kind == EItemKind::eLink || kind == EItemKind::eHardLink;
}

bool IsTextFine(const std::string& text) noexcept {
    return text.size() <= kMaxNameBytes && text.find('\0') == std::string::npos;
}

bool IsTypeFine(EItemKind kind, util::EFileType type) noexcept {
    switch (kind) {
        case EItemKind::eFile:
            return type == util::EFileType::eRegular;
        case EItemKind::eDirectory:
            return type == util::EFileType::eDirectory;
        case EItemKind::eLink:
            return type == util::EFileType::eSymlink;
        case EItemKind::eHardLink:
            return type != util::EFileType::eDirectory;
        case EItemKind::eCommit:
            return false;
    }
    return false;
}

std::string_view FindFlagFault(const item_t& item) noexcept {
    if (item.resumable && item.kind != EItemKind::eFile) {
        return "its kind is not resumable";
    }
    if (item.deferred && item.kind == EItemKind::eCommit) {
        return "a commit is not deferred";
    }
    if (item.entry != 0 && !item.deferred && item.kind != EItemKind::eCommit) {
        return "it has an entry number but is not deferred";
    }
    return {};
}

std::string_view FindItemFault(const item_t& item) noexcept {
    if (item.path.empty() != (item.kind == EItemKind::eCommit)) {
        return item.path.empty() ? "it has no path" : "a commit has no path";
    }
    if (!IsTextFine(item.path)) {
        return "its path is too long or contains a NUL byte";
    }
    if (!IsTextFine(item.second)) {
        return "its second path is too long or contains a NUL byte";
    }
    if (item.second.empty() == HasSecondText(item.kind)) {
        return item.second.empty() ? "it has no second path" : "its kind has no second path";
    }
    if (item.startOffset != 0 && item.kind != EItemKind::eFile) {
        return "its kind has no start offset";
    }
    if (const std::string_view fault = FindFlagFault(item); !fault.empty()) {
        return fault;
    }
    if (item.info.isSet() && !IsTypeFine(item.kind, item.info.type)) {
        return "its attributes belong to an object of another type";
    }
    return {};
}

}  // namespace

std::string_view NameOfKind(EItemKind kind) noexcept {
    switch (kind) {
        case EItemKind::eFile:
            return "file";
        case EItemKind::eDirectory:
            return "directory";
        case EItemKind::eLink:
            return "link";
        case EItemKind::eHardLink:
            return "hard link";
        case EItemKind::eCommit:
            return "commit";
    }
    return "unknown";
}

void CheckItem(const item_t& item) {
    if (const std::string_view fault = FindItemFault(item); !fault.empty()) {
        throw exc::CRuntimeExc("Invalid item [%1]: %2.", ShownName(item.path), fault);
    }
}

}  // namespace agent
