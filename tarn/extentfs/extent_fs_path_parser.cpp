#include "tarn/extentfs/extent_fs_path_parser.h"

#include <string_view>

#include "mirrowen/exc/regen.h"
#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/util/str.h"

namespace tarn::extentfs {

namespace {

constexpr std::string_view kPrefix = "ExtentExFS[";
constexpr std::string_view kOldPrefix = "ExtentFS[";
constexpr const char* kArchiveKey = "arch";

/// How many characters the prefix of a remote form has; 0 for a local path.
std::size_t PrefixLength(const std::string& text) noexcept {
    if (util::str_is_starts_with(text, kPrefix)) {
        return kPrefix.size();
    }
    return util::str_is_starts_with(text, kOldPrefix) ? kOldPrefix.size() : 0;
}

SExtentFsPath ParseRemote(const std::string& text, std::size_t prefix) {
    const std::size_t close = text.find(']');
    if (close == std::string::npos) {
        throw exc::CRuntimeExc("There is no close bracket in path.");
    }
    const std::string_view arguments = std::string_view(text).substr(prefix, close - prefix);
    return {SExtentFsPathParser::ParseLocationArgs(util::str_split_to_vector(arguments, ",")), text.substr(close + 1)};
}

}  // namespace

std::string SExtentFsPathParser::Serial(const SExtentFsPath& path) {
    if (path.location.IsLocal()) {
        return path.path;
    }
    std::string text(kPrefix);
    text += ToStrWithoutBrackets(path.location.locationId);
    if (!path.location.archId.IsEmpty()) {
        text.append(",").append(kArchiveKey).append("=").append(ToStrWithoutBrackets(path.location.archId));
    }
    return text.append("]").append(path.path);
}

SExtentFsPath SExtentFsPathParser::Unserial(const std::string& text) {
    const std::size_t prefix = PrefixLength(text);
    if (prefix == 0) {
        return {{}, text};
    }
    try {
        return ParseRemote(text, prefix);
    } catch (const std::exception&) {
        exc::RegenExc("Failed to parse externalFs path '%1'.", text);
    }
}

std::string SExtentFsPathParser::ToStrWithoutBrackets(const guid::guid_t& id) {
    return util::str_trim_end(util::str_trim_start(id.ToAStr(), "{"), "}");
}

SExtentLocation SExtentFsPathParser::ParseLocationArgs(const arguments_t& arguments) {
    if (arguments.empty()) {
        throw exc::CRuntimeExc("Invalid location is specified");
    }
    SExtentLocation location;
    location.locationId = guid::guid_t::FromAStr(arguments.front());
    named_arguments_t values;
    SelectKeyValuePairs(arguments, values);
    TryFindUidArgVal(values, kArchiveKey, location.archId);
    return location;
}

void SExtentFsPathParser::SelectKeyValuePairs(const arguments_t& arguments, named_arguments_t& values) {
    for (const std::string& argument : arguments) {
        const std::size_t equals = argument.find('=');
        if (equals != std::string::npos) {
            const std::string_view text = argument;
            values[util::str_trim(text.substr(0, equals), " ")] = util::str_trim(text.substr(equals + 1), " ");
        }
    }
}

bool SExtentFsPathParser::TryFindArgVal(const named_arguments_t& values, const std::string& key, std::string& value) {
    const auto found = values.find(key);
    if (found == values.end()) {
        return false;
    }
    value = found->second;
    return true;
}

bool SExtentFsPathParser::TryFindUidArgVal(const named_arguments_t& values, const std::string& key,
                                           guid::guid_t& value) {
    std::string text;
    if (!TryFindArgVal(values, key, text)) {
        return false;
    }
    value = guid::guid_t::FromAStr(text);
    return true;
}

}  // namespace tarn::extentfs
