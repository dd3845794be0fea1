#include "cli/text.h"

#include <cstdio>
#include <ctime>

namespace cli {

std::string TimeText(const util::SFileTime& time) {
    const std::time_t seconds = time.seconds;
    std::tm parts{};
    if (::gmtime_r(&seconds, &parts) == nullptr) {
        return std::to_string(time.seconds);
    }
    char text[64];
    char full[96];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &parts);
    std::snprintf(full, sizeof full, "%s.%09uZ", text, time.nanoseconds);
    return full;
}

std::string ModeText(std::uint32_t mode) {
    char text[16];
    std::snprintf(text, sizeof text, "%04o", mode);
    return text;
}

const char* TypeText(util::EFileType type) {
    switch (type) {
        case util::EFileType::eRegular:
            return "file";
        case util::EFileType::eDirectory:
            return "directory";
        case util::EFileType::eSymlink:
            return "link";
        case util::EFileType::eFifo:
            return "fifo";
        case util::EFileType::eSocket:
            return "socket";
        case util::EFileType::eCharDevice:
            return "character device";
        case util::EFileType::eBlockDevice:
            return "block device";
        case util::EFileType::eUnset:
            break;
    }
    return "unknown";
}

}  // namespace cli
