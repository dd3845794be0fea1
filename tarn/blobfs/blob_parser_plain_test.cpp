#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/blob_fixture.h"

/// The private operations as such: their types, and the two that keep no file open, which `Execute` does not use.
namespace {

using tarn::blobfs::BlobBody_CreateDir;
using tarn::blobfs::BlobBody_CreateFile;
using tarn::blobfs::BlobBody_SetFileMetadata;
using tarn::blobfs::BlobBody_WriteFile;
using tarn::blobfs::BlobCmd_Header;
using parser_t = tarn::blobfs::BlobParser;
using file_ptr_t = std::shared_ptr<posix::posix_file_t>;

template <class... Args>
using operation_t = std::uint32_t (parser_t::*)(Args...);

/// Compiles only for an operation of exactly this type. The arguments of an explicit instantiation are not checked for
/// access.
template <class Type, Type Member>
struct has_type_t {};
template struct has_type_t<operation_t<std::list<const BlobCmd_Header*>&>, &parser_t::_ApplyListCmds>;
template struct has_type_t<operation_t<const std::string&, const BlobBody_CreateDir*>, &parser_t::_CreateFolder>;
template struct has_type_t<operation_t<const std::string&, const BlobBody_CreateFile*, file_ptr_t&>,
                           &parser_t::_CreateFileOptimized>;
template struct has_type_t<operation_t<const std::string&, const BlobBody_WriteFile*, file_ptr_t&>,
                           &parser_t::_WriteFileOptimized>;
template struct has_type_t<operation_t<const std::string&, const BlobBody_SetFileMetadata*>,
                           &parser_t::_SetFileMetadata>;

/// Reaches a private member in the same way.
template <class Tag, typename Tag::type Member>
struct reach_t {
    friend typename Tag::type Reach(Tag /*tag*/) { return Member; }
};

struct create_t {
    using type = operation_t<const std::string&, const BlobBody_CreateFile*>;
    friend type Reach(create_t tag);
};
template struct reach_t<create_t, &parser_t::_CreateFile>;

struct write_t {
    using type = operation_t<const std::string&, const BlobBody_WriteFile*>;
    friend type Reach(write_t tag);
};
template struct reach_t<write_t, &parser_t::_WriteFile>;

class BlobParserPlain : public tests::blob_fixture_t {
  protected:
    std::uint32_t Create(const std::string& path, std::uint8_t overwrite) {
        const BlobBody_CreateFile body{overwrite};
        return (parser_.*Reach(create_t()))(path, &body);
    }
    std::uint32_t Write(const std::string& path, std::uint64_t offset, const std::string& data) {
        const std::string bytes =
            tests::wire_text_t().U64(offset).U32(static_cast<std::uint32_t>(data.size())).Raw(data).Bytes();
        return (parser_.*Reach(write_t()))(path, reinterpret_cast<const BlobBody_WriteFile*>(bytes.data()));
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
