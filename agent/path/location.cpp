#include "agent/path/location.h"

#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/util/str.h"

namespace agent {

namespace {

constexpr std::string_view kRemotePrefix = "tarn://";

std::string_view trim_slashes(std::string_view path) {
    while (!path.empty() && path.front() == '/') {
        path.remove_prefix(1);
    }
    while (!path.empty() && path.back() == '/') {
        path.remove_suffix(1);
    }
    return path;
}

}  // namespace

location_t ParseLocation(std::string_view text) {
    if (!util::str_is_starts_with(text, kRemotePrefix)) {
        return {false, {}, std::string(text)};
    }
    const std::string_view rest = text.substr(kRemotePrefix.size());
    const std::size_t slash = rest.find('/');
    if (slash == std::string_view::npos) {
        throw exc::CRuntimeExc("'%1' is not a location of the form tarn://HOST:PORT/PATH.", text);
    }
    try {
        return {true, net::ParseEndpoint(rest.substr(0, slash)), std::string(trim_slashes(rest.substr(slash)))};
    } catch (const exc::CRuntimeExc&) {
        throw exc::CRuntimeExc(util::str_format("'%1' is not a location of the form tarn://HOST:PORT/PATH.", text),
                               std::current_exception());
    }
}

std::string ToString(const location_t& location) {
    if (!location.isRemote) {
        return location.path;
    }
    return std::string(kRemotePrefix) + net::ToString(location.endpoint) + "/" + location.path;
}

location_t Append(const location_t& location, std::string_view name) {
    location_t result = location;
    if (!result.path.empty() && result.path.back() != '/') {
        result.path += '/';
    }
    result.path += name;
    return result;
}

}  // namespace agent
