#include "tarn/symlink_data.h"

#include <utility>

#include <boost/filesystem/operations.hpp>

#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/util/numeric_cast.h"
#include "mirrowen/util/str_format.h"
#include "tarn/fs_log.h"

namespace tarn {
namespace {

namespace fs = boost::filesystem;

/// Whether the link at `path` leads to a directory. A link that leads nowhere is no error of Boost's, yet its type
/// could not be examined.
bool LeadsToDirectory(const fs::path& path) {
    boost::system::error_code error;
    const fs::file_status target = fs::status(path, error);
    if (error || !fs::exists(target)) {
        const auto reason = error ? error : make_error_code(boost::system::errc::no_such_file_or_directory);
        fs_log.warn("Failed to check symlink type: " + reason.message());
        return false;
    }
    return fs::is_directory(target);
}

}  // namespace

CSymlinkData::CSymlinkData(ESymlinkType type, ESymlinkAction action, cnt::array_t<char>&& data)
    : type_(type), data_(std::move(data)), action_(action) {}

CSymlinkData::CSymlinkData(ESymlinkType type, const std::string& target) : type_(type) {
    SetTarget(target);
}

void CSymlinkData::SetTarget(const std::string& target) {
    data_.assign(target.begin(), target.end());
}

std::string CSymlinkData::ToLogStr() const {
    switch (type_) {
        case ESymlinkType::eFileLink:
            return util::str_format("[FILELINK->'[%1]']", std::string(*this));
        case ESymlinkType::eDirLink:
            return util::str_format("[DIRLINK->'[%1]']", std::string(*this));
        case ESymlinkType::eReparsePointFile:
            return util::str_format("[REPARSEPOINT_FILE [%1] bytes]", data_.size());
        case ESymlinkType::eReparsePointDir:
            return util::str_format("[REPARSEPOINT_DIR [%1] bytes]", data_.size());
        case ESymlinkType::eNone:
            break;
    }
    return util::str_format("[UNKNOWN SYMLINK TYPE [%1], [%2] bytes]", static_cast<std::uint32_t>(type_), data_.size());
}

void CSymlinkData::Serialize(io::binary_stream_tt& stream) const {
    stream.WriteU32(static_cast<std::uint32_t>(type_));
    stream.WriteU32(util::numeric_cast<std::uint32_t>(data_.size()));
    if (!data_.empty()) {
        stream.WriteExact(data_.data(), data_.size());
    }
}

void CSymlinkData::DeSerialize(io::binary_stream_tt& stream) {
    const auto type = static_cast<ESymlinkType>(stream.ReadU32());
    const std::string data = stream.ReadBytes(stream.ReadU32());
    *this = CSymlinkData(type, data);
}

CSymlinkData CSymlinkData::fromStream(io::binary_stream_tt& stream) {
    CSymlinkData data;
    data.DeSerialize(stream);
    return data;
}

CSymlinkData CSymlinkData::fromPath(const std::string& path) {
    if (!fs::is_symlink(fs::symlink_status(path))) {
        throw exc::CRuntimeExc("Path %1 is not a symlink or reparse point", path);
    }
    const fs::path target = fs::read_symlink(path);
    const ESymlinkType type = LeadsToDirectory(path) ? ESymlinkType::eDirLink : ESymlinkType::eFileLink;
    return {type, target.native()};
}

void CSymlinkData::Create(const std::string& path) const {
    const std::string target(*this);
    // The system would take the bytes before the NUL for the target; nothing is removed for such a link.
    if (IsPosix() && target.find('\0') != std::string::npos) {
        throw exc::CRuntimeExc("The target of link [%1] contains a NUL byte.", path);
    }
    if (fs::is_symlink(fs::symlink_status(path)) || fs::is_directory(fs::status(path))) {
        fs::remove(path);
    }
    if (type_ == ESymlinkType::eFileLink) {
        fs::create_symlink(target, path);
    } else if (type_ == ESymlinkType::eDirLink) {
        fs::create_directory_symlink(target, path);
    } else {
        throw exc::CRuntimeExc("Unsupported symlink type: %1", static_cast<std::uint32_t>(type_));
    }
}

}  // namespace tarn
