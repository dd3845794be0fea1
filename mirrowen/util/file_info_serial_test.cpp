#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/util/file_info.h"
#include "tests/support/format_example.h"
#include "tests/support/scripted_dev.h"

namespace util {

namespace {

using std::string_literals::operator""s;

CFileInfo Example() {
    CFileInfo info;
    info.type = EFileType::eRegular;
    info.size = 5;
    info.owner = {.name = "root", .id = 0};
    info.group = {.name = "adm", .id = 4};
    info.mode = 0644;
    info.accessTime = {.seconds = 1700000000, .nanoseconds = 1};
    info.modificationTime = {.seconds = -1, .nanoseconds = 999999999};
    info.nfs4Acl = {1, 2};
    info.attributes = {{.name = "user.a", .value = "x\0"s}};
    return info;
}

std::string Write(const CFileInfo& info) {
    auto device = std::make_shared<tests::scripted_dev_t>();
    io::binary_stream_tt stream(device);
    info.Serialize(stream);
    return device->output;
}

CFileInfo Read(const std::string& bytes) {
    io::binary_stream_tt stream(std::make_shared<tests::scripted_dev_t>(bytes));
    return CFileInfo::fromStream(stream);
}

template <class Action>
std::string MessageOf(Action action) {
    try {
        action();
    } catch (const exc::CRuntimeExc& error) {
        return error.Message();
    }
    return "nothing was thrown";
}

// Offsets in the documented example.
constexpr std::size_t kType = 4;
constexpr std::size_t kOwnerName = 16;
constexpr std::size_t kMode = 39;
constexpr std::size_t kAccessNanoseconds = 51;
constexpr std::size_t kAccessList = 83;
constexpr std::size_t kNfs4List = 91;
constexpr std::size_t kAttributeCount = 97;
constexpr std::size_t kAttributeName = 101;
constexpr std::size_t kAttributeValue = 111;

std::string ExampleWith(std::size_t offset, const std::string& bytes) {
    return tests::FormatExample("File info").replace(offset, bytes.size(), bytes);
}

TEST(FileInfoSerialTest, WritesTheDocumentedBytes) {
    EXPECT_EQ(Write(Example()), tests::FormatExample("File info"));
}

TEST(FileInfoSerialTest, ReadsTheDocumentedBytes) {
    EXPECT_EQ(Read(tests::FormatExample("File info")), Example());
}

TEST(FileInfoSerialTest, AnUnsetInfoTravels) {
    EXPECT_FALSE(CFileInfo().isSet());
    EXPECT_EQ(Read(Write(CFileInfo())), CFileInfo());
}

TEST(FileInfoSerialTest, EveryFieldSurvives) {
    CFileInfo info = Example();
    info.type = EFileType::eSymlink;
    info.size = ~std::uint64_t{0};
    info.owner = {.name = std::string(kMaxPrincipalName, 'o'), .id = ~std::uint32_t{0}};
    info.group = {.name = "", .id = 77};
    info.mode = 07777;
    info.accessTime = {.seconds = std::numeric_limits<std::int64_t>::min(), .nanoseconds = 0};
    info.changeTime = {.seconds = std::numeric_limits<std::int64_t>::max(), .nanoseconds = 999999999};
    info.posixAcl = {.isExtended = true, .accessText = "user::rw-\n", .defaultText = std::string(kMaxAclText, 'd')};
    info.nfs4Acl.assign(kMaxAclText, 9);
    info.attributes = {{.name = "n", .value = ""},
                       {.name = std::string(kMaxAttributeName, 'n'), .value = std::string(kMaxAttributeValue, '\xff')}};
    EXPECT_TRUE(info.isSymlink());
    EXPECT_EQ(Read(Write(info)), info);
}

TEST(FileInfoSerialTest, TheMostAttributesSurvive) {
    CFileInfo info = Example();
    info.attributes.clear();
    for (std::uint32_t i = 0; i < kMaxAttributes; ++i) {
        info.attributes.push_back({.name = std::string(24, 'n'), .value = std::string(1000, 'v')});
    }
    EXPECT_EQ(Read(Write(info)), info);
}

TEST(FileInfoSerialTest, AFormThatEndsEarlyChangesNothing) {
    const std::string bytes = tests::FormatExample("File info");
    for (std::size_t length = 0; length < bytes.size(); ++length) {
        io::binary_stream_tt stream(std::make_shared<tests::scripted_dev_t>(bytes.substr(0, length)));
        CFileInfo info;
        info.owner.name = "before";
        const CFileInfo before = info;
        EXPECT_THAT(MessageOf([&] { info.DeSerialize(stream); }), ::testing::HasSubstr("received less bytes"))
            << length;
        EXPECT_EQ(info, before) << length;
    }
}

TEST(FileInfoSerialTest, NothingBehindTheFormIsRead) {
    auto device = std::make_shared<tests::scripted_dev_t>(tests::FormatExample("File info") + "rest");
    io::binary_stream_tt stream(device);
    CFileInfo info;
    info.DeSerialize(stream);
    EXPECT_EQ(info, Example());
    EXPECT_EQ(device->position + 4, device->input.size());
}

TEST(FileInfoSerialTest, LengthsThatLieAllocateNothing) {
    for (const std::size_t offset :
         {kOwnerName, kAccessList, kNfs4List, kAttributeCount, kAttributeName, kAttributeValue}) {
        auto device = std::make_shared<tests::scripted_dev_t>(ExampleWith(offset, "\xff\xff\xff\xff"));
        io::binary_stream_tt stream(device);
        CFileInfo info = Example();
        EXPECT_THAT(MessageOf([&] { info.DeSerialize(stream); }), ::testing::StartsWith("Invalid file info: "));
        EXPECT_EQ(device->position, offset + 4) << "nothing is read behind a length that is refused";
        EXPECT_EQ(info, Example());
    }
}

TEST(FileInfoSerialTest, ValuesOutOfRangeAreRefused) {
    const auto refused = [](std::size_t offset, const std::string& bytes) {
        return MessageOf([&] { Read(ExampleWith(offset, bytes)); });
    };
    EXPECT_EQ(refused(0, "tFI2"), "Invalid file info: unknown version.");
    EXPECT_EQ(refused(kType, "\x08"), "Invalid file info: unknown file type.");
    EXPECT_EQ(refused(kType, "\x01\x01"), "Invalid file info: unknown file type.");
    EXPECT_EQ(refused(kOwnerName, "\x01\x01"), "Invalid file info: owner or group name is too long.");
    EXPECT_EQ(refused(kOwnerName + 4, "\0"s), "Invalid file info: owner or group name is not valid.");
    EXPECT_EQ(refused(kMode, "\0\x10"s), "Invalid file info: mode is out of range.");
    EXPECT_EQ(refused(kAccessNanoseconds, "\x00\xca\x9a\x3b"s), "Invalid file info: nanoseconds are out of range.");
    EXPECT_EQ(refused(kAccessList, "\x01\0\x01"s), "Invalid file info: access-control list is too long.");
    EXPECT_EQ(refused(kNfs4List, "\x01\0\x01"s), "Invalid file info: access-control list is too long.");
    EXPECT_EQ(refused(kAttributeCount, "\x01\x04"), "Invalid file info: too many extended attributes.");
    EXPECT_EQ(refused(kAttributeName, "\0\x01"s), "Invalid file info: name of an extended attribute is too long.");
    EXPECT_EQ(refused(kAttributeName + 4, "\0"s), "Invalid file info: name of an extended attribute is not valid.");
    EXPECT_EQ(refused(kAttributeValue, "\x01\0\x01"s),
              "Invalid file info: value of an extended attribute is too long.");
}

TEST(FileInfoSerialTest, WhatNoReaderWouldAcceptIsNotWritten) {
    const auto refused = [](const std::function<void(CFileInfo&)>& change) {
        CFileInfo info = Example();
        change(info);
        auto device = std::make_shared<tests::scripted_dev_t>();
        io::binary_stream_tt stream(device);
        const std::string message = MessageOf([&] { info.Serialize(stream); });
        EXPECT_EQ(device->output, "");
        return message;
    };
    EXPECT_EQ(refused([](CFileInfo& info) { info.type = static_cast<EFileType>(8); }),
              "Invalid file info: unknown file type.");
    EXPECT_EQ(refused([](CFileInfo& info) { info.group.name.assign(kMaxPrincipalName + 1, 'g'); }),
              "Invalid file info: owner or group name is not valid.");
    EXPECT_EQ(refused([](CFileInfo& info) { info.mode = 0100644; }), "Invalid file info: mode is out of range.");
    EXPECT_EQ(refused([](CFileInfo& info) { info.changeTime.nanoseconds = 1000000000; }),
              "Invalid file info: nanoseconds are out of range.");
    EXPECT_EQ(refused([](CFileInfo& info) { info.posixAcl.defaultText.assign(kMaxAclText + 1, 'd'); }),
              "Invalid file info: access-control list is too long.");
    EXPECT_EQ(refused([](CFileInfo& info) { info.nfs4Acl.assign(kMaxAclText + 1, 1); }),
              "Invalid file info: access-control list is too long.");
    EXPECT_EQ(refused([](CFileInfo& info) { info.attributes.resize(kMaxAttributes + 1); }),
              "Invalid file info: too many extended attributes.");
    EXPECT_EQ(refused([](CFileInfo& info) { info.attributes[0].name.clear(); }),
              "Invalid file info: name of an extended attribute is not valid.");
    EXPECT_EQ(refused([](CFileInfo& info) { info.attributes[0].value.assign(kMaxAttributeValue + 1, 'v'); }),
              "Invalid file info: value of an extended attribute is too long.");
}

TEST(FileInfoSerialTest, AttributesTogetherAreBounded) {
    CFileInfo info = Example();
    info.attributes.assign(16, {.name = "n", .value = std::string(kMaxAttributeValue - 1, 'v')});
    std::string bytes = Write(info);
    EXPECT_EQ(Read(bytes), info) << "exactly 1 MiB";
    info.attributes.push_back({.name = "n", .value = ""});
    EXPECT_EQ(MessageOf([&] { Write(info); }), "Invalid file info: extended attributes are too long.");
    bytes.replace(kAttributeCount, 1, "\x11");
    bytes += "\x01\0\0\0n\0\0\0\0"s;
    EXPECT_EQ(MessageOf([&] { Read(bytes); }), "Invalid file info: extended attributes are too long.");
}

}  // namespace

}  // namespace util
