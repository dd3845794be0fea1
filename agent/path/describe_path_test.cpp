#include "agent/path/describe_path.h"

#include <gtest/gtest.h>

#include "mirrowen/exc/exception.h"

namespace agent {
namespace {

using fields_t = std::vector<std::pair<std::string, std::string>>;

void ExpectDescription(const std::string& text, const std::string& backend, const fields_t& fields) {
    const path_description_t description = DescribePath(text);
    EXPECT_EQ(description.backend, backend) << text;
    EXPECT_EQ(description.fields, fields) << text;
}

TEST(DescribePath, EveryFormIsToldWithItsFields) {
    ExpectDescription("tarn://[::1]:7070/a/b", "agent", {{"host", "::1"}, {"port", "7070"}, {"path", "a/b"}});
    ExpectDescription("FlrFS:///mnt/a", "restore view", {{"path", "/mnt/a"}});
    ExpectDescription("tdatafs://tape|5", "tape data", {{"name", "tape"}, {"first", "5"}});
    ExpectDescription("tdatafs:\\\\tape|5|7", "tape data", {{"name", "tape"}, {"first", "5"}, {"second", "7"}});
    ExpectDescription("memfs://slot/x", "memory", {{"slot", "slot/x"}});
    ExpectDescription("/etc/hostname", "host", {{"path", "/etc/hostname"}});
    ExpectDescription("blobfs://x", "host", {{"path", "blobfs://x"}});  // no such prefix is registered
    ExpectDescription("flrfs://x", "host", {{"path", "flrfs://x"}});
}

TEST(DescribePath, ExtentPathIsAHostPathWithFieldsOfItsOwn) {
    const std::string id = "01234567-89ab-cdef-fedc-ba9876543210";
    const std::string none = "00000000-0000-0000-0000-000000000000";
    const std::string text = "ExtentFS[" + id + "]/a]b";
    ExpectDescription(text, "host",
                      {{"path", text}, {"location", id}, {"archive", none}, {"path in the location", "/a]b"}});
    ExpectDescription("ExtentFS[nonsense]/a", "host", {{"path", "ExtentFS[nonsense]/a"}});
}

TEST(DescribePath, MalformedFieldsAreAnErrorOfTheirForm) {
    EXPECT_THROW(DescribePath("tarn://nowhere"), exc::CException);
    EXPECT_THROW(DescribePath("tdatafs://tape|five"), exc::CException);
}

}  // namespace
}  // namespace agent
