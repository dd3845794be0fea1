#include "tarn/blobfs/blob_cmd.h"

#include <cstring>
#include <new>
#include <string>
#include <string_view>
#include <type_traits>

#include <gtest/gtest.h>

namespace tarn::blobfs {
namespace {

using namespace std::string_literals;

static_assert(static_cast<std::uint32_t>(eBlobCmd::eCreateDir) == 1);
static_assert(static_cast<std::uint32_t>(eBlobCmd::eCreateFile) == 2);
static_assert(static_cast<std::uint32_t>(eBlobCmd::eWriteFile) == 3);
static_assert(static_cast<std::uint32_t>(eBlobCmd::eSetFileMetadata) == 4);
static_assert(!std::is_copy_constructible_v<BlobCmd> && !std::is_copy_assignable_v<BlobCmd>);
static_assert(sizeof(BlobCmd) == sizeof(void*));

std::string BytesOf(const BlobCmd& command) {
    return {command.buffer(), command.length()};
}

template <class Body>
void Put(BlobCmd& command, const Body& body) {
    std::memcpy(command.body(), &body, sizeof body);
}

TEST(BlobCmd, HeaderPathAndBodyStandInOneBlock) {
    BlobCmd command(eBlobCmd::eWriteFile, 4, "/a/b", 3);
    std::memcpy(command.body(), "xyz", 3);
    EXPECT_EQ(command.length(), 17U);
    EXPECT_EQ(command.body(), command.buffer() + 14);
    EXPECT_EQ(BytesOf(command), "\x11\0\0\0\x03\0\0\0\x04\0/a/bxyz"s);
}

TEST(BlobCmd, WithoutAPathTheBodyFollowsTheHeader) {
    BlobCmd command(eBlobCmd::eCreateDir, 0, nullptr, 1);
    *command.body() = 1;
    EXPECT_EQ(BytesOf(command), "\x0B\0\0\0\x01\0\0\0\0\0\x01"s);
}

TEST(BlobCmd, ACommandMayHaveNoBody) {
    const BlobCmd command(eBlobCmd::eCreateFile, 1, "a", 0);
    EXPECT_EQ(BytesOf(command), "\x0B\0\0\0\x02\0\0\0\x01\0a"s);
}

TEST(BlobCmd, NumbersAreLittleEndian) {
    BlobCmd command(eBlobCmd::eSetFileMetadata, 0x0102, std::string(0x0102, 'p').c_str(), 0x030000);
    std::memset(command.body(), 0, 0x030000);
    EXPECT_EQ(BytesOf(command).substr(0, 10), "\x0C\x01\x03\0\x04\0\0\0\x02\x01"s);
}

TEST(BlobCmd, BodiesHaveTheirLayout) {
    BlobBody_WriteFile write{};
    write.offset = 0x1122334455667788;
    write.length = 0x99AABBCC;
    BlobCmd writing(eBlobCmd::eWriteFile, 0, nullptr, sizeof write);
    Put(writing, write);
    EXPECT_EQ(BytesOf(writing).substr(10), "\x88\x77\x66\x55\x44\x33\x22\x11\xCC\xBB\xAA\x99");

    BlobBody_SetFileMetadata metadata{};
    metadata.length = 0x01020304;
    BlobCmd setting(eBlobCmd::eSetFileMetadata, 0, nullptr, sizeof metadata);
    Put(setting, metadata);
    EXPECT_EQ(BytesOf(setting).substr(10), "\x04\x03\x02\x01");

    BlobCmd dir(eBlobCmd::eCreateDir, 0, nullptr, sizeof(BlobBody_CreateDir));
    Put(dir, BlobBody_CreateDir{1});
    EXPECT_EQ(BytesOf(dir).substr(10), "\x01");
    BlobCmd file(eBlobCmd::eCreateFile, 0, nullptr, sizeof(BlobBody_CreateFile));
    Put(file, BlobBody_CreateFile{0});
    EXPECT_EQ(BytesOf(file).substr(10), "\0"s);
}

TEST(BlobCmd, FieldsAreReadWhereverTheyLie) {
    std::string bytes = "?\x11\0\0\0\x03\0\0\0\x04\0/a/bxyz"s;
    BlobCmd_Header header{};
    std::memcpy(&header, bytes.data() + 1, sizeof header);
    EXPECT_EQ(header.totalLength, 17U);
    EXPECT_EQ(header.type, 3U);
    EXPECT_EQ(header.pathLength, 4U);
    const auto* const there = reinterpret_cast<const BlobCmd_Header*>(bytes.data() + 1);
    EXPECT_EQ(there->totalLength, 17U);
}

TEST(BlobCmd, TheLongestPathFits) {
    const std::string path(65535, 'p');
    const BlobCmd command(eBlobCmd::eCreateFile, path.size(), path.data(), 0);
    EXPECT_EQ(command.length(), 65545U);
    EXPECT_EQ(BytesOf(command).substr(8), "\xFF\xFF" + path);
}

TEST(BlobCmd, ALongerPathKeepsTheLowBitsOfItsLengthAndStaysInTheBlock) {
    const std::string path(65537, 'p');
    BlobCmd command(eBlobCmd::eCreateFile, path.size(), path.data(), 2);
    std::memcpy(command.body(), "xy", 2);
    EXPECT_EQ(command.length(), 65549U);
    EXPECT_EQ(BytesOf(command).substr(8, 6), "\x01\0pxyp"s);
}

TEST(BlobCmd, MemoryThatIsNotThereIsSaid) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizer ends the program when memory is refused";
#endif
    EXPECT_THROW(BlobCmd(eBlobCmd::eCreateFile, SIZE_MAX / 2, "a", 0), std::bad_alloc);
}

}  // namespace
}  // namespace tarn::blobfs
