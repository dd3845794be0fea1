#include "agent/batch/batch_format.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "mirrowen/exc/runtime_exc.h"

namespace agent::batch {
namespace {

using namespace std::string_literals;

const guid::guid_t kCopy({0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88, 0x99, 0xaa, 0xbb, 0xcc, 0xdd, 0xee,
                          0xff});
const std::string kDigits = "00112233445566778899aabbccddeeff";

TEST(BatchFormat, NameIsTheCopyAndTheNumberCountedFromOne) {
    EXPECT_EQ(FormatBatchName({kCopy, 0}), kDigits + "/1");
    EXPECT_EQ(FormatBatchName({kCopy, 511}), kDigits + "/512");
    EXPECT_EQ(FormatBatchName({guid::guid_t(), 9}), "00000000000000000000000000000000/10");
}

TEST(BatchFormat, NameIsReadAsItWasWritten) {
    for (const std::uint64_t entry : {0ULL, 1ULL, 8ULL, 9ULL, 1023ULL, 18446744073709551614ULL}) {
        const batch_name_t name{kCopy, entry};
        EXPECT_EQ(ParseBatchName(FormatBatchName(name)), name);
    }
}

TEST(BatchFormat, AnythingElseIsNoName) {
    const std::vector<std::string> names = {
        ""s,
        "/"s,
        kDigits,
        kDigits + "/",
        kDigits + "/0",
        kDigits + "/01",
        kDigits + "/-1",
        kDigits + "/+1",
        kDigits + "/ 1",
        kDigits + "/1 ",
        kDigits + "/1/",
        kDigits + "/1/../2",
        kDigits + "/0x1",
        kDigits + "/..",
        kDigits + "/18446744073709551616",
        kDigits + "1/1",
        kDigits + "//1",
        kDigits + "/1\0"s,
        "../" + kDigits + "/1",
        "/" + kDigits + "/1",
        kDigits.substr(1) + "/1",
        "00112233445566778899AABBCCDDEEFF/1"s,
        "g0112233445566778899aabbccddeeff/1"s,
        "{00112233-4455-6677-8899-aabbccddeeff}/1"s,
    };
    for (const std::string& name : names) {
        EXPECT_THROW(ParseBatchName(name), exc::CRuntimeExc) << name;
    }
}

TEST(BatchFormat, RefusedNameIsShownCut) {
    try {
        ParseBatchName("a\0b"s.append(1000, 'x'));
        FAIL();
    } catch (const exc::CRuntimeExc& error) {
        EXPECT_EQ(error.Message().rfind("[a\\x00bxxx", 0), 0U) << error.Message();
        EXPECT_LT(error.Message().size(), 400U);
    }
}

}  // namespace
}  // namespace agent::batch
