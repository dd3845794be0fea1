#include "tarn/symlink_data.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <boost/filesystem/exception.hpp>

#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/io/mem_dev.h"
#include "tests/support/caught_error.h"
#include "tests/support/format_example.h"
#include "tests/support/logged.h"
#include "tests/support/temp_dir.h"

namespace tarn {
namespace {

using bytes_t = cnt::array_t<char>;
using testing::HasSubstr;

static_assert(std::is_same_v<std::underlying_type_t<ESymlinkType>, std::uint32_t>);
static_assert(std::is_same_v<std::underlying_type_t<ESymlinkAction>, std::uint32_t>);
static_assert(static_cast<int>(ESymlinkType::eNone) == 0);
static_assert(static_cast<int>(ESymlinkType::eFileLink) == 1);
static_assert(static_cast<int>(ESymlinkType::eDirLink) == 2);
static_assert(static_cast<int>(ESymlinkType::eReparsePointFile) == 3);
static_assert(static_cast<int>(ESymlinkType::eReparsePointDir) == 4);
static_assert(static_cast<int>(ESymlinkAction::eDefault) == 0);

constexpr auto kAction7 = static_cast<ESymlinkAction>(7);

CSymlinkData Make(std::uint32_t type, const std::string& data, ESymlinkAction action = ESymlinkAction::eDefault) {
    return {static_cast<ESymlinkType>(type), action, bytes_t(data.begin(), data.end())};
}

bytes_t Serialized(const CSymlinkData& link) {
    const auto device = std::make_shared<io::mem_dev_tt<bytes_t>>();
    io::binary_stream_tt stream(device);
    link.Serialize(stream);
    return *device->GetBuffer();
}

CSymlinkData Deserialized(const bytes_t& bytes) {
    io::binary_stream_tt stream(std::make_shared<io::mem_dev_tt<bytes_t>>(std::make_shared<bytes_t>(bytes)));
    return CSymlinkData::fromStream(stream);
}

bytes_t Bytes(std::initializer_list<int> values) {
    bytes_t bytes;
    for (const int value : values) {
        bytes.push_back(static_cast<char>(value));
    }
    return bytes;
}

TEST(SymlinkData, DefaultRecordIsEmptyAndInvalid) {
    const CSymlinkData link;
    EXPECT_FALSE(link.IsValid());
    EXPECT_FALSE(link.IsPosix());
    EXPECT_EQ(link.GetType(), ESymlinkType::eNone);
    EXPECT_EQ(link.GetAction(), ESymlinkAction::eDefault);
    EXPECT_EQ(std::string(link), "");
}

TEST(SymlinkData, ThreeArgumentConstructorTakesAllAsGiven) {
    bytes_t data = {'a', '\0', 'b'};
    const CSymlinkData link(ESymlinkType::eReparsePointDir, kAction7, std::move(data));
    EXPECT_EQ(link.GetType(), ESymlinkType::eReparsePointDir);
    EXPECT_EQ(link.GetAction(), kAction7);
    EXPECT_EQ(std::string(link), std::string("a\0b", 3));
    EXPECT_TRUE(data.empty());  // NOLINT(bugprone-use-after-move): it was moved from
}

TEST(SymlinkData, TargetConstructorHasActionZeroAndTheBytesOfTheString) {
    const CSymlinkData link(ESymlinkType::eFileLink, "/a/b");
    EXPECT_EQ(link.GetType(), ESymlinkType::eFileLink);
    EXPECT_EQ(link.GetAction(), ESymlinkAction::eDefault);
    EXPECT_EQ(std::string(link), "/a/b");
}

TEST(SymlinkData, ValidityAndKindFollowFromTheType) {
    for (std::uint32_t type = 0; type <= 4; ++type) {
        const CSymlinkData link = Make(type, "x");
        EXPECT_EQ(link.IsValid(), type != 0) << type;
        EXPECT_EQ(link.IsPosix(), type == 1 || type == 2) << type;
    }
}

TEST(SymlinkData, SetTargetReplacesTheDataOnly) {
    CSymlinkData link = Make(2, "long target", kAction7);
    link.SetTarget("t");
    EXPECT_EQ(std::string(link), "t");
    EXPECT_EQ(link.GetType(), ESymlinkType::eDirLink);
    EXPECT_EQ(link.GetAction(), kAction7);
}

TEST(SymlinkData, LogTextNamesTypeAndTargetOrSize) {
    EXPECT_EQ(Make(1, "/t").ToLogStr(), "[FILELINK->'[/t]']");
    EXPECT_EQ(Make(2, "%1").ToLogStr(), "[DIRLINK->'[%1]']");
    EXPECT_EQ(Make(3, "12345").ToLogStr(), "[REPARSEPOINT_FILE [5] bytes]");
    EXPECT_EQ(Make(4, "").ToLogStr(), "[REPARSEPOINT_DIR [0] bytes]");
    EXPECT_EQ(CSymlinkData().ToLogStr(), "[UNKNOWN SYMLINK TYPE [0], [0] bytes]");
    EXPECT_EQ(Make(77, "abc").ToLogStr(), "[UNKNOWN SYMLINK TYPE [77], [3] bytes]");
    EXPECT_EQ(Make(0xFFFFFFFF, "").ToLogStr(), "[UNKNOWN SYMLINK TYPE [4294967295], [0] bytes]");
}

TEST(SymlinkData, SerialFormIsTheDocumentedOne) {
    const std::string example = tests::FormatExample("Symbolic link");
    const bytes_t golden(example.begin(), example.end());
    EXPECT_EQ(Serialized(CSymlinkData(ESymlinkType::eFileLink, "/etc")), golden);
    EXPECT_EQ(golden.size(), 12U);
    const CSymlinkData link = Deserialized(golden);
    EXPECT_EQ(link.GetType(), ESymlinkType::eFileLink);
    EXPECT_EQ(std::string(link), "/etc");
}

TEST(SymlinkData, RecordWithoutDataTakesEightBytes) {
    EXPECT_EQ(Serialized(Make(2, "")), Bytes({2, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(std::string(Deserialized(Bytes({2, 0, 0, 0, 0, 0, 0, 0}))), "");
}

TEST(SymlinkData, RoundTripKeepsTypeAndDataAndDropsTheAction) {
    for (std::uint32_t type = 0; type <= 5; ++type) {
        const std::string data("d\0a\xff", 4);
        const CSymlinkData link = Deserialized(Serialized(Make(type, data, kAction7)));
        EXPECT_EQ(static_cast<std::uint32_t>(link.GetType()), type);
        EXPECT_EQ(std::string(link), data);
        EXPECT_EQ(link.GetAction(), ESymlinkAction::eDefault);
    }
}

TEST(SymlinkData, ReadingIntoARecordReplacesAllOfIt) {
    const auto device = std::make_shared<io::mem_dev_tt<bytes_t>>(std::make_shared<bytes_t>(Serialized(Make(1, "t"))));
    io::binary_stream_tt stream(device);
    CSymlinkData link = Make(4, "longer", kAction7);
    link.DeSerialize(stream);
    EXPECT_EQ(link.GetType(), ESymlinkType::eFileLink);
    EXPECT_EQ(std::string(link), "t");
    EXPECT_EQ(link.GetAction(), ESymlinkAction::eDefault);
}

TEST(SymlinkData, MissingBytesAreTheStreamsErrorAndLeaveTheRecord) {
    const bytes_t cut = Bytes({1, 0, 0, 0, 4, 0, 0, 0, 'a', 'b'});
    io::binary_stream_tt stream(std::make_shared<io::mem_dev_tt<bytes_t>>(std::make_shared<bytes_t>(cut)));
    CSymlinkData link = Make(2, "old", kAction7);
    const auto caught = tests::CatchError([&] { link.DeSerialize(stream); });
    EXPECT_EQ(caught.type, "exc::CRuntimeExc");
    EXPECT_THAT(caught.message, HasSubstr("Failed to retrieve value from the binary stream: received less bytes (2) "
                                          "than expected (4)."));
    EXPECT_EQ(std::string(link), "old");
    EXPECT_EQ(link.GetAction(), kAction7);
}

TEST(SymlinkData, LengthThatLiesAllocatesNothingLarge) {
    const auto caught = tests::CatchError([] { Deserialized(Bytes({1, 0, 0, 0, 0xff, 0xff, 0xff, 0xff, 'a'})); });
    EXPECT_THAT(caught.message, HasSubstr("received less bytes"));
}

class SymlinkDataOnDisk : public testing::Test {
  protected:
    std::string Path(const std::string& name) const { return (std::filesystem::path(dir_.path()) / name).string(); }
    void MakeFile(const std::string& name) const { std::ofstream(Path(name)) << "content"; }
    void MakeLink(const std::string& target, const std::string& name) const {
        std::filesystem::create_symlink(target, Path(name));
    }
    std::string LinkAt(const std::string& name) const { return std::filesystem::read_symlink(Path(name)).string(); }

    tests::temp_dir_t dir_;
};

TEST_F(SymlinkDataOnDisk, LinkToAFileIsReadAsSuch) {
    MakeFile("file");
    MakeLink("file", "link");
    const tests::log_capture_t log;
    const CSymlinkData link = CSymlinkData::fromPath(Path("link"));
    EXPECT_EQ(link.GetType(), ESymlinkType::eFileLink);
    EXPECT_EQ(std::string(link), "file");
    EXPECT_EQ(link.GetAction(), ESymlinkAction::eDefault);
    EXPECT_TRUE(log.Lines().empty());
}

TEST_F(SymlinkDataOnDisk, LinkToADirectoryIsReadAsSuchAlsoThroughAnotherLink) {
    std::filesystem::create_directory(Path("dir"));
    MakeLink(Path("dir"), "link");
    MakeLink("link", "second");
    EXPECT_EQ(CSymlinkData::fromPath(Path("link")).GetType(), ESymlinkType::eDirLink);
    const CSymlinkData second = CSymlinkData::fromPath(Path("second"));
    EXPECT_EQ(second.GetType(), ESymlinkType::eDirLink);
    EXPECT_EQ(std::string(second), "link");
}

TEST_F(SymlinkDataOnDisk, DanglingLinkIsAFileLinkWithAWarning) {
    MakeLink("nothing", "link");
    const tests::log_capture_t log;
    const CSymlinkData link = CSymlinkData::fromPath(Path("link"));
    EXPECT_EQ(link.GetType(), ESymlinkType::eFileLink);
    EXPECT_EQ(std::string(link), "nothing");
    EXPECT_TRUE(tests::Logged(log, logging::ELevel::eWarn, "Failed to check symlink type: No such file or directory"));
}

TEST_F(SymlinkDataOnDisk, LinkToItselfIsAFileLinkWithAWarning) {
    MakeLink("loop", "loop");
    const tests::log_capture_t log;
    EXPECT_EQ(CSymlinkData::fromPath(Path("loop")).GetType(), ESymlinkType::eFileLink);
    EXPECT_TRUE(
        tests::Logged(log, logging::ELevel::eWarn, "Failed to check symlink type: Too many levels of symbolic links"));
}

TEST_F(SymlinkDataOnDisk, WhatIsNoLinkIsRefusedByName) {
    MakeFile("file");
    std::filesystem::create_directory(Path("dir"));
    for (const std::string name : {"file", "dir", "missing"}) {
        const auto caught = tests::CatchError([&] { CSymlinkData::fromPath(Path(name)); });
        EXPECT_EQ(caught.type, "exc::CRuntimeExc");
        EXPECT_EQ(caught.message, "Path " + Path(name) + " is not a symlink or reparse point");
    }
}

TEST_F(SymlinkDataOnDisk, ExaminingThatFailsIsBoostsError) {
    const std::string tooLong(300, 'n');
    EXPECT_THROW(CSymlinkData::fromPath(Path(tooLong)), boost::filesystem::filesystem_error);
}

TEST_F(SymlinkDataOnDisk, CreateMakesFileAndDirectoryLinks) {
    Make(1, "some/target").Create(Path("file"));
    Make(2, "/other").Create(Path("dir"));
    EXPECT_EQ(LinkAt("file"), "some/target");
    EXPECT_EQ(LinkAt("dir"), "/other");
}

TEST_F(SymlinkDataOnDisk, CreateReplacesALinkButNotItsTarget) {
    MakeFile("target");
    MakeLink("target", "link");
    MakeLink("nothing", "dangling");
    Make(1, "new").Create(Path("link"));
    Make(1, "new").Create(Path("dangling"));
    EXPECT_EQ(LinkAt("link"), "new");
    EXPECT_EQ(LinkAt("dangling"), "new");
    EXPECT_TRUE(std::filesystem::is_regular_file(Path("target")));
}

TEST_F(SymlinkDataOnDisk, CreateReplacesALinkToAFullDirectory) {
    std::filesystem::create_directory(Path("dir"));
    MakeFile("dir/kept");
    MakeLink("dir", "link");
    Make(2, "new").Create(Path("link"));
    EXPECT_EQ(LinkAt("link"), "new");
    EXPECT_TRUE(std::filesystem::exists(Path("dir/kept")));
}

TEST_F(SymlinkDataOnDisk, CreateReplacesAnEmptyDirectory) {
    std::filesystem::create_directory(Path("dir"));
    Make(1, "new").Create(Path("dir"));
    EXPECT_EQ(LinkAt("dir"), "new");
}

TEST_F(SymlinkDataOnDisk, CreateOverAFullDirectoryFailsAndKeepsIt) {
    std::filesystem::create_directory(Path("dir"));
    MakeFile("dir/kept");
    EXPECT_THROW(Make(1, "new").Create(Path("dir")), boost::filesystem::filesystem_error);
    EXPECT_TRUE(std::filesystem::is_regular_file(Path("dir/kept")));
}

TEST_F(SymlinkDataOnDisk, CreateOverAFileFailsAndKeepsIt) {
    MakeFile("file");
    EXPECT_THROW(Make(1, "new").Create(Path("file")), boost::filesystem::filesystem_error);
    EXPECT_TRUE(std::filesystem::is_regular_file(Path("file")));
}

TEST_F(SymlinkDataOnDisk, CreateRefusesATargetThatTheSystemWouldCutAndKeepsWhatIsThere) {
    const std::string cut("new\0rest", 8);
    for (const std::uint32_t type : {1U, 2U}) {
        MakeLink("old", "link" + std::to_string(type));
        const std::string path = Path("link" + std::to_string(type));
        const auto caught = tests::CatchError([&] { Make(type, cut).Create(path); });
        EXPECT_EQ(caught.type, "exc::CRuntimeExc");
        EXPECT_EQ(caught.message, "The target of link [" + path + "] contains a NUL byte.");
        EXPECT_EQ(LinkAt("link" + std::to_string(type)), "old");
    }
    EXPECT_EQ(tests::CatchError([&] { Make(3, cut).Create(Path("point")); }).message, "Unsupported symlink type: 3")
        << "reparse data is bytes, not a name";
}

TEST_F(SymlinkDataOnDisk, CreateRefusesOtherTypesAfterItHasMadeRoom) {
    for (const std::uint32_t type : {0U, 3U, 4U, 77U}) {
        MakeLink("old", "link");
        const auto caught = tests::CatchError([&] { Make(type, "data").Create(Path("link")); });
        EXPECT_EQ(caught.type, "exc::CRuntimeExc");
        EXPECT_EQ(caught.message, "Unsupported symlink type: " + std::to_string(type));
        EXPECT_FALSE(std::filesystem::is_symlink(Path("link")));
    }
}

}  // namespace
}  // namespace tarn
