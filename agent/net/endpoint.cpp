#include "agent/net/endpoint.h"

#include <charconv>

#include "mirrowen/exc/runtime_exc.h"

namespace agent::net {

namespace {

[[noreturn]] void refuse(std::string_view text) {
    throw exc::CRuntimeExc("'%1' is not an address of the form HOST:PORT.", text);
}

}  // namespace

endpoint_t ParseEndpoint(std::string_view text) {
    const std::size_t colon = text.rfind(':');
    if (colon == std::string_view::npos) {
        refuse(text);
    }
    std::string_view host = text.substr(0, colon);
    const std::string_view port = text.substr(colon + 1);
    if (host.size() >= 2 && host.front() == '[' && host.back() == ']') {
        host = host.substr(1, host.size() - 2);
    } else if (host.find_first_of(":[]") != std::string_view::npos) {
        refuse(text);
    }
    endpoint_t endpoint{std::string(host), 0};
    const auto [end, error] = std::from_chars(port.data(), port.data() + port.size(), endpoint.port);
    if (host.empty() || error != std::errc() || end != port.data() + port.size()) {
        refuse(text);
    }
    return endpoint;
}

std::string ToString(const endpoint_t& endpoint) {
    const bool brackets = endpoint.host.find(':') != std::string::npos;
    std::string text = brackets ? "[" + endpoint.host + "]" : endpoint.host;
    return text + ":" + std::to_string(endpoint.port);
}

}  // namespace agent::net
