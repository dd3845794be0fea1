#include "agent/net/endpoint.h"

#include <gtest/gtest.h>

#include "mirrowen/exc/runtime_exc.h"

namespace agent::net {
namespace {

TEST(Endpoint, HostAndPortAreTakenApart) {
    EXPECT_EQ(ParseEndpoint("127.0.0.1:7070"), (endpoint_t{"127.0.0.1", 7070}));
    EXPECT_EQ(ParseEndpoint("localhost:0"), (endpoint_t{"localhost", 0}));
    EXPECT_EQ(ParseEndpoint("[::1]:65535"), (endpoint_t{"::1", 65535}));
}

TEST(Endpoint, TextFormIsReadBack) {
    for (const char* text : {"127.0.0.1:7070", "[::1]:7070", "localhost:1"}) {
        EXPECT_EQ(ToString(ParseEndpoint(text)), text);
    }
}

TEST(Endpoint, AnythingElseIsNamedAndRefused) {
    for (const char* text :
         {"", "host", "host:", ":1", "host:65536", "host:-1", "host:1 ", "::1:7070", "[::1:7070", "[]:1"}) {
        try {
            ParseEndpoint(text);
            FAIL() << text;
        } catch (const exc::CRuntimeExc& error) {
            EXPECT_EQ(error.Message(), "'" + std::string(text) + "' is not an address of the form HOST:PORT.");
        }
    }
}

}  // namespace
}  // namespace agent::net
