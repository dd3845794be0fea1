#include "agent/path/location.h"

#include <gtest/gtest.h>

#include "mirrowen/exc/runtime_exc.h"

namespace agent {
namespace {

TEST(Location, TextWithoutTheRemotePrefixIsAPathOfTheLibrary) {
    for (const char* text : {"/etc/passwd", "MemFs://x", "FlrFS:///a", "TARN://h:1/x", "relative", "-"}) {
        const location_t location = ParseLocation(text);
        EXPECT_FALSE(location.isRemote) << text;
        EXPECT_EQ(location.path, text);
        EXPECT_EQ(ToString(location), text);
    }
}

TEST(Location, RemotePathIsTakenAsBytesBelowTheRoot) {
    const location_t location = ParseLocation("tarn://127.0.0.1:7070/a%20b/\xff c");
    EXPECT_TRUE(location.isRemote);
    EXPECT_EQ(location.endpoint, (net::endpoint_t{"127.0.0.1", 7070}));
    EXPECT_EQ(location.path, "a%20b/\xff c");
    EXPECT_EQ(ToString(location), "tarn://127.0.0.1:7070/a%20b/\xff c");
}

TEST(Location, RootAndSlashesAroundThePathMakeNoDifference) {
    EXPECT_EQ(ParseLocation("tarn://h:1/").path, "");
    EXPECT_EQ(ParseLocation("tarn://h:1///a/b//").path, "a/b");
}

TEST(Location, BracketedAddressIsUnderstood) {
    const location_t location = ParseLocation("tarn://[::1]:7070/x");
    EXPECT_EQ(location.endpoint, (net::endpoint_t{"::1", 7070}));
    EXPECT_EQ(ToString(location), "tarn://[::1]:7070/x");
}

TEST(Location, MalformedRemoteLocationIsNamed) {
    for (const char* text : {"tarn://", "tarn://host", "tarn://host:1", "tarn://host/x", "tarn://:1/x",
                             "tarn://h:70000/x", "tarn://::1:7/x", "tarn://h:1x/x"}) {
        try {
            ParseLocation(text);
            FAIL() << text;
        } catch (const exc::CRuntimeExc& error) {
            EXPECT_EQ(error.Message(),
                      "'" + std::string(text) + "' is not a location of the form tarn://HOST:PORT/PATH.");
        }
    }
}

TEST(Location, AppendAddsOneComponent) {
    EXPECT_EQ(Append(ParseLocation("tarn://h:1/"), "x").path, "x");
    EXPECT_EQ(Append(ParseLocation("tarn://h:1/a"), "x").path, "a/x");
    EXPECT_EQ(Append(ParseLocation("/"), "x").path, "/x");
    EXPECT_EQ(Append(ParseLocation("dir/"), "x").path, "dir/x");
}

}  // namespace
}  // namespace agent
