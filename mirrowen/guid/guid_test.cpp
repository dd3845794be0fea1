#include "mirrowen/guid/guid.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

#include "tests/support/caught_error.h"
#include "tests/support/fake_random.h"

namespace {

using guid::guid_t;

constexpr guid_t kSample(guid_t::bytes_t{0x01, 0x23, 0x45, 0x67, 0x89, 0xab, 0xcd, 0xef, 0xfe, 0xdc, 0xba, 0x98, 0x76,
                                         0x54, 0x32, 0x10});

static_assert(guid_t().IsEmpty() && !kSample.IsEmpty());
static_assert(guid_t() < kSample);

TEST(Guid, TextIsBracedLowerCaseHex) {
    EXPECT_EQ(kSample.ToAStr(), "{01234567-89ab-cdef-fedc-ba9876543210}");
    EXPECT_EQ(guid_t().ToAStr(), "{00000000-0000-0000-0000-000000000000}");
}

TEST(Guid, TextIsReadWithAndWithoutBracketsInEitherCase) {
    EXPECT_EQ(guid_t::FromAStr("{01234567-89ab-cdef-fedc-ba9876543210}"), kSample);
    EXPECT_EQ(guid_t::FromAStr("01234567-89ab-cdef-fedc-ba9876543210"), kSample);
    EXPECT_EQ(guid_t::FromAStr("{01234567-89AB-CDEF-FEDC-BA9876543210}"), kSample);
    EXPECT_EQ(guid_t::FromAStr(kSample.ToAStr()), kSample);
}

TEST(Guid, OtherTextsAreRefused) {
    for (const std::string text :
         {"", "{}", "01234567-89ab-cdef-fedc-ba987654321", "01234567-89ab-cdef-fedc-ba98765432100",
          "{01234567-89ab-cdef-fedc-ba9876543210", "01234567-89ab-cdef-fedc-ba9876543210}",
          "(01234567-89ab-cdef-fedc-ba9876543210)", "0123456789-ab-cdef-fedc-ba9876543210",
          "01234567-89ab-cdef-fedc-ba987654321g", "01234567-89ab-cdef-fedc-ba98765432-1",
          " 1234567-89ab-cdef-fedc-ba9876543210", "01234567_89ab_cdef_fedc_ba9876543210"}) {
        EXPECT_THAT(tests::CatchError([&] { guid_t::FromAStr(text); }),
                    tests::Throws("exc::CRuntimeExc", "'" + text + "' is not a GUID."));
    }
}

TEST(Guid, NewOnesDiffer) {
    EXPECT_NE(guid_t::CreateNew(), guid_t::CreateNew());
}

TEST(Guid, OrdersByBytes) {
    guid_t::bytes_t larger = kSample.Bytes();
    larger[0] = 0x80;
    EXPECT_LT(kSample, guid_t(larger));
    EXPECT_EQ(kSample, guid_t(kSample.Bytes()));
}

TEST(Guid, CreatedOnesAreRandomAndOfVersionFour) {
    std::set<guid_t> seen;
    for (int i = 0; i < 200; ++i) {
        const guid_t id = guid_t::Create();
        EXPECT_EQ(id.Bytes()[6] >> 4, 4);
        EXPECT_EQ(id.Bytes()[8] >> 6, 2);
        EXPECT_TRUE(seen.insert(id).second);
    }
}

guid_t created_with(std::uint64_t seed) {
    const tests::fake_random_t random(seed);
    return guid_t::Create();
}

TEST(Guid, ComesFromTheSourceOfRandomnessInForce) {
    EXPECT_EQ(created_with(3), created_with(3));
    EXPECT_NE(created_with(3), created_with(4));
}

}  // namespace
