#include <cstring>
#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/blob_fixture.h"

/// The operations that keep no file open, which `Execute` does not use.
namespace {

using tarn::blobfs::BlobBody_CreateFile;
using tarn::blobfs::BlobBody_WriteFile;

/// Reaches a private member: the arguments of an explicit instantiation are not checked for access.
template <class Tag, typename Tag::type Member>
struct reach_t {
    friend typename Tag::type Reach(Tag /*tag*/) { return Member; }
};

struct create_tag_t {
    using type = std::uint32_t (tarn::blobfs::BlobParser::*)(const std::string&, const BlobBody_CreateFile*);
    friend type Reach(create_tag_t tag);
};
template struct reach_t<create_tag_t, &tarn::blobfs::BlobParser::_CreateFile>;

struct write_tag_t {
    using type = std::uint32_t (tarn::blobfs::BlobParser::*)(const std::string&, const BlobBody_WriteFile*);
    friend type Reach(write_tag_t tag);
};
template struct reach_t<write_tag_t, &tarn::blobfs::BlobParser::_WriteFile>;

class BlobParserPlain : public tests::blob_fixture_t {
  protected:
    std::uint32_t Create(const std::string& path, std::uint8_t overwrite) {
        const BlobBody_CreateFile body{overwrite};
        return (parser_.*Reach(create_tag_t()))(path, &body);
    }
    std::uint32_t Write(const std::string& path, std::uint64_t offset, const std::string& data) {
        const std::string bytes =
            tests::wire_text_t().U64(offset).U32(static_cast<std::uint32_t>(data.size())).Raw(data).Bytes();
        return (parser_.*Reach(write_tag_t()))(path, reinterpret_cast<const BlobBody_WriteFile*>(bytes.data()));
    }
};

TEST_F(BlobParserPlain, CreatesAFile) {
    EXPECT_EQ(Create(Path("f"), 0), 0U);
    EXPECT_EQ(Content("f"), "");
    Put("g", "old");
    EXPECT_EQ(Create(Path("g"), 1), 0U);
    EXPECT_EQ(Content("g"), "");
}

TEST_F(BlobParserPlain, LeavesAFileThatExists) {
    Put("f", "old");
    std::filesystem::create_symlink(Path("nothing"), Path("dangling"));
    EXPECT_EQ(Create(Path("f"), 0), 0U);
    EXPECT_EQ(Create(Path("dangling"), 0), 0U);
    EXPECT_EQ(Content("f"), "old");
    EXPECT_THAT(Traces(), testing::ElementsAre("File " + Path("f") + " already exist!",
                                               "File " + Path("dangling") + " already exist!"));
}

TEST_F(BlobParserPlain, CountsAFileThatCannotBeCreated) {
    EXPECT_EQ(Create(Path("none/f"), 1), 1U);
    EXPECT_THAT(Errors(), testing::ElementsAre(error_line_t{
                              "Failed to create file [" + Path("none/f") + "]",
                              "Failed to create file [" + Path("none/f") + "]: No such file or directory"}));
    EXPECT_EQ(observed_.size(), 1U);
}

TEST_F(BlobParserPlain, WritesIntoAFile) {
    Put("f", "0123456789");
    EXPECT_EQ(Write(Path("f"), 3, "abc"), 0U);
    EXPECT_EQ(Write(Path("f"), 9, "xyz"), 0U);
    EXPECT_EQ(Content("f"), "012abc678xyz");
}

TEST_F(BlobParserPlain, CountsAFileThatCannotBeWritten) {
    EXPECT_EQ(Write(Path("missing"), 0, "x"), 1U);
    EXPECT_THAT(Errors(), testing::ElementsAre(error_line_t{
                              "Failed to write file [" + Path("missing") + "]",
                              "Failed to open file [" + Path("missing") + "] for writing: No such file or directory"}));
    EXPECT_EQ(observed_.size(), 1U);
}

}  // namespace
