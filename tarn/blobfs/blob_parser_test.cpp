#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <limits>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "mirrowen/util/file_info.h"
#include "mirrowen/util/str.h"
#include "tarn/blobfs/blob_command_reader.h"
#include "tarn/blobfs/lz4.h"
#include "tests/support/blob_fixture.h"
#include "tests/support/fake_clock.h"
#include "tests/support/faulty_syscalls.h"
#include "tests/support/format_example.h"
#include "tests/support/upload_kit.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using tests::blob_stream_t;

class BlobParser : public tests::blob_fixture_t {
  protected:
    static constexpr const char* kExists = "]: File exists";

    static std::string Info(std::uint32_t mode, std::int64_t seconds) {
        util::CFileInfo info;
        info.type = util::EFileType::eRegular;
        info.owner.id = ::geteuid();
        info.group.id = ::getegid();
        info.mode = mode;
        info.accessTime = {seconds, 1};
        info.modificationTime = {seconds, 2};
        return tests::BytesWritten([&](io::binary_stream_tt& stream) { info.Serialize(stream); });
    }

    static struct stat Look(const std::string& path) {
        struct stat found = {};
        EXPECT_EQ(::lstat(path.c_str(), &found), 0) << path;
        return found;
    }
};

TEST_F(BlobParser, ReplaysFoldersFilesDataAndMetadata) {
    const auto caught = Apply(blob_stream_t()
                                  .CreateDir(Path("d"), false)
                                  .CreateFile(Path("d/f"), false)
                                  .Write("", 3, "def")
                                  .Write("", 0, "abc")
                                  .Metadata("", Info(0640, 1234567890))
                                  .CreateFile(Path("empty"), true)
                                  .Metadata(Path("d"), Info(0750, 42)));
    EXPECT_FALSE(caught.thrown) << caught.what;
    EXPECT_EQ(Content("d/f"), "abcdef");
    EXPECT_EQ(Look(Path("d/f")).st_mode & 07777U, 0640U);
    EXPECT_EQ(Look(Path("d/f")).st_mtim.tv_sec, 1234567890);
    EXPECT_EQ(Look(Path("d/f")).st_mtim.tv_nsec, 2);
    EXPECT_EQ(Content("empty"), "");
    EXPECT_EQ(Look(Path("empty")).st_mode & 07777U, 0600U);
    EXPECT_TRUE(S_ISDIR(Look(Path("d")).st_mode));
    EXPECT_EQ(Look(Path("d")).st_mode & 07777U, 0750U);
    EXPECT_EQ(Look(Path("d")).st_mtim.tv_sec, 42);
    EXPECT_FALSE(BlobStays());
    EXPECT_THAT(Errors(), IsEmpty());
    EXPECT_THAT(observed_, IsEmpty());
}

TEST_F(BlobParser, DocumentedExampleIsACompleteBlobFile) {
    tests::WriteFile(blob_, tests::FormatExample("Blob file"));
    const auto payload = tarn::blobfs::CLz4::decompressFromFile(blob_);
    tarn::blobfs::blob_command_reader_t reader(*payload);
    std::vector<std::pair<std::uint32_t, std::string>> commands;
    while (const auto command = reader.Next()) {
        commands.emplace_back(command->type, command->path);
    }
    EXPECT_THAT(commands, ElementsAre(Pair(1, "/d"), Pair(2, "/d/f"), Pair(3, ""), Pair(4, "")));
}

TEST_F(BlobParser, TellsWhatItDoesInTheTrace) {
    const tests::fake_clock_t clock;
    EXPECT_FALSE(Apply(blob_stream_t().Command(2, Path("f"), std::string(1, '\1'))).thrown);
    EXPECT_THAT(Traces(), ElementsAre("PARSING_OPTIMIZED used.", "Lz4 compressing for traffic used.",
                                      "read " + std::to_string(11 + Path("f").size()) + " bytes.",
                                      "File parse duration = 0.000 seconds."));
}

TEST_F(BlobParser, DurationIsToldInWholeSeconds) {
    tests::fake_clock_t clock;
    tarn::blobfs::BlobParser parser([&](const std::string& /*path*/, const std::exception& /*failure*/) {
        clock.Advance(std::chrono::seconds(2));
    });
    tests::WriteFile(blob_, tests::BlobFrame(blob_stream_t().Command(5, "/a", "").Command(5, "/b", "").Bytes()));
    EXPECT_TRUE(tests::CatchError([&] { parser.Execute(blob_); }).thrown);
    EXPECT_EQ(Traces().back(), "File parse duration = 4.000 seconds.");
}

TEST_F(BlobParser, EmptyBlobFileIsDeletedAndIsNoFailure) {
    EXPECT_FALSE(ApplyBytes("").thrown);
    EXPECT_FALSE(BlobStays());
    EXPECT_THAT(Traces(), ElementsAre("PARSING_OPTIMIZED used.", "Lz4 compressing for traffic used."));
}

TEST_F(BlobParser, MissingBlobFileIsNamed) {
    EXPECT_EQ(
        tests::CatchError([&] { parser_.Execute(blob_); }).what,
        "Failed to parse file [" + blob_ + "].\nFailed to get size of file [" + blob_ + "]: No such file or directory");
}

TEST_F(BlobParser, WhatIsNoRegularFileIsRefusedAndStays) {
    ASSERT_EQ(::mkfifo(blob_.c_str(), 0600), 0);
    for (const std::string& path : {blob_, target_, std::string("/dev/null")}) {
        EXPECT_EQ(tests::CatchError([&] { parser_.Execute(path); }).what,
                  "Failed to parse file [" + path + "].\nBlob file is not a regular file.");
        EXPECT_TRUE(util::fs_file_exists(path));
    }
}

TEST_F(BlobParser, BlobFileAboveTwoGibibytesIsRefusedAndStays) {
    tests::WriteFile(blob_, "");
    std::filesystem::resize_file(blob_, 2147483649);
    const auto caught = tests::CatchError([&] { parser_.Execute(blob_); });
    EXPECT_EQ(caught.what, "Failed to parse file [" + blob_ + "].\nFile too big! [2147483649].");
    EXPECT_EQ(caught.type, "exc::CRuntimeExc");
    EXPECT_THAT(caught.causeTypes, ElementsAre("exc::CRuntimeExc"));
    EXPECT_TRUE(BlobStays());
}

TEST_F(BlobParser, BlobFileOfExactlyTwoGibibytesIsOpened) {
    tests::WriteFile(blob_, "");
    std::filesystem::resize_file(blob_, 2147483648);
    tests::faulty_syscalls_t calls;
    calls.Fail<&posix::syscalls_t::open>(EIO);
    EXPECT_EQ(
        tests::CatchError([&] { parser_.Execute(blob_); }).what,
        "Failed to parse file [" + blob_ + "].\nFailed to open file [" + blob_ + "] for reading: Input/output error");
    EXPECT_TRUE(BlobStays());
}

TEST_F(BlobParser, BlobFileThatCannotBeDeletedIsAFailure) {
    tests::faulty_syscalls_t calls;
    calls.Fail<&posix::syscalls_t::unlinkat>(EROFS);
    EXPECT_EQ(Apply(blob_stream_t().CreateFile(Path("f"), false)).what,
              "Failed to parse file [" + blob_ + "].\nFailed to delete file [" + blob_ + "]: Read-only file system");
    EXPECT_EQ(Content("f"), "");
}

TEST_F(BlobParser, FailuresAreCountedLoggedAndObservedAndTheBlobFileIsConsumed) {
    const std::string first = Path("none/a");
    const std::string second = Path("none/b");
    const auto caught = Apply(blob_stream_t()
                                  .CreateFile(first, true)
                                  .Write("", 0, "x")
                                  .CreateDir(second, false)
                                  .CreateFile(Path("good"), false));
    EXPECT_EQ(caught.what, Fails(3));
    EXPECT_EQ(caught.type, "exc::CRuntimeExc");
    EXPECT_THAT(caught.causeTypes, ElementsAre("exc::CRuntimeExc"));
    const std::string none = "]: No such file or directory";
    const std::string create = "Failed to create file [" + first + none;
    const std::string open = "Failed to open file [" + first + "] for writing: No such file or directory";
    const std::string make = "Failed to create directory [" + second + none;
    EXPECT_THAT(Errors(), ElementsAre(error_line_t{"Failed to create file [" + first + "]", create},
                                      error_line_t{"Failed to write file [" + first + "]", open},
                                      error_line_t{"Failed to create folder [" + second + "]", make}));
    EXPECT_THAT(observed_, ElementsAre(Pair(first, create), Pair(first, open), Pair(second, make)));
    EXPECT_EQ(Content("good"), "");
    EXPECT_FALSE(BlobStays());
}

TEST_F(BlobParser, NeedsNoObserver) {
    tests::WriteFile(blob_, tests::BlobFrame(blob_stream_t().CreateFile(Path("none/a"), true).Bytes()));
    EXPECT_EQ(tests::CatchError([&] { tarn::blobfs::BlobParser().Execute(blob_); }).what, Fails(1));
}

// Lists of commands

TEST_F(BlobParser, ListWithoutANameFailsAloneAndTheNextGoesOn) {
    const auto caught =
        Apply(blob_stream_t().CreateFile("", true).CreateDir("", true).CreateFile(Path("f"), false).Write("", 0, "x"));
    EXPECT_EQ(caught.what, Fails(1));
    EXPECT_THAT(Errors(),
                ElementsAre(error_line_t{"Failed to apply list of commands.", "Cannot create file without name."}));
    EXPECT_THAT(observed_, ElementsAre(Pair("", "Cannot create file without name.")));
    EXPECT_EQ(Content("f"), "x");
}

TEST_F(BlobParser, UnknownCommandEndsItsListAndTheNextGoesOn) {
    for (const std::uint32_t type : {0U, 5U, 0xFFFFFFFFU}) {
        const auto caught = Apply(blob_stream_t()
                                      .CreateFile(Path("a"), true)
                                      .Command(type, "", "body")
                                      .Write("", 0, "skipped")
                                      .CreateFile(Path("b"), true)
                                      .Write("", 0, "b"));
        EXPECT_EQ(caught.what, Fails(1));
        EXPECT_EQ(Errors().back(), (error_line_t{"Failed to apply list of commands.",
                                                 "Invalid command type = " + std::to_string(type) + "."}));
        EXPECT_EQ(observed_.back().first, Path("a"));
        EXPECT_EQ(Content("a"), "");
        EXPECT_EQ(Content("b"), "b");
    }
}

TEST_F(BlobParser, PathsThatAreRepeatedStartANewList) {
    const auto caught =
        Apply(blob_stream_t().CreateFile(Path("a"), true).Command(5, "", "").Write(Path("a"), 0, "written"));
    EXPECT_EQ(caught.what, Fails(1));
    EXPECT_EQ(Content("a"), "written");
}

TEST_F(BlobParser, PathWithAZeroByteIsRefused) {
    Put("f", "old");
    const std::string path = Path("f") + std::string("\0x", 2);
    EXPECT_EQ(Apply(blob_stream_t().Write(path, 0, "new").CreateFile(Path("g"), false)).what, Fails(1));
    EXPECT_THAT(Errors(), ElementsAre(error_line_t{"Failed to apply list of commands.",
                                                   "Path of a blob command contains a zero byte."}));
    EXPECT_EQ(Content("f"), "old");
    EXPECT_EQ(Content("g"), "");
}

// Folders

TEST_F(BlobParser, FolderThatExistsStaysAsItIs) {
    util::fs_make_directory(Path("d"));
    Put("d/inside", "kept");
    EXPECT_FALSE(Apply(blob_stream_t().CreateDir(Path("d///"), false)).thrown);
    EXPECT_EQ(Content("d/inside"), "kept");
    EXPECT_THAT(Traces(), testing::Contains("Folder " + Path("d") + " already exist!"));
}

TEST_F(BlobParser, OverwrittenFolderIsMadeAgain) {
    util::fs_make_directory(Path("d"));
    ASSERT_EQ(::chmod(Path("d").c_str(), 01755), 0);
    EXPECT_FALSE(Apply(blob_stream_t().CreateDir(Path("d"), true).CreateDir(Path("new"), true)).thrown);
    EXPECT_TRUE(S_ISDIR(Look(Path("d")).st_mode));
    EXPECT_EQ(Look(Path("d")).st_mode & 01000U, 0U);
    EXPECT_TRUE(S_ISDIR(Look(Path("new")).st_mode));
}

TEST_F(BlobParser, OverwrittenFolderMustBeEmpty) {
    util::fs_make_directory(Path("d"));
    Put("d/inside", "kept");
    EXPECT_EQ(Apply(blob_stream_t().CreateDir(Path("d"), true)).what, Fails(1));
    EXPECT_THAT(Errors(), ElementsAre(error_line_t{"Failed to create folder [" + Path("d") + "]",
                                                   "Failed to delete file [" + Path("d") + "]: Directory not empty"}));
    EXPECT_EQ(Content("d/inside"), "kept");
}

TEST_F(BlobParser, FileInTheWayOfAFolderIsAFailure) {
    Put("d", "kept");
    for (const bool overwrite : {false, true}) {
        EXPECT_EQ(Apply(blob_stream_t().CreateDir(Path("d"), overwrite)).what, Fails(1));
        EXPECT_EQ(Errors().back(), (error_line_t{"Failed to create folder [" + Path("d") + "]",
                                                 "Failed to create directory [" + Path("d") + kExists}));
        EXPECT_EQ(Content("d"), "kept");
    }
}

TEST_F(BlobParser, OverwrittenFolderReplacesALinkToOne) {
    util::fs_make_directory(Path("real"));
    Put("real/inside", "kept");
    std::filesystem::create_symlink(Path("real"), Path("d"));
    EXPECT_FALSE(Apply(blob_stream_t().CreateDir(Path("d/"), true)).thrown);
    EXPECT_TRUE(S_ISDIR(Look(Path("d")).st_mode));
    EXPECT_EQ(Content("real/inside"), "kept");
}

TEST_F(BlobParser, LinkToAFolderIsAFolder) {
    util::fs_make_directory(Path("real"));
    std::filesystem::create_symlink(Path("real"), Path("d"));
    std::filesystem::create_symlink(Path("nothing"), Path("dangling"));
    EXPECT_EQ(Apply(blob_stream_t()
                        .CreateDir(Path("d"), false)
                        .CreateFile(Path("d/f"), false)
                        .CreateDir(Path("dangling"), false))
                  .what,
              Fails(1));
    EXPECT_EQ(Content("real/f"), "");
    EXPECT_THAT(Errors(), ElementsAre(error_line_t{"Failed to create folder [" + Path("dangling") + "]",
                                                   "Failed to create directory [" + Path("dangling") + kExists}));
    EXPECT_FALSE(util::fs_file_exists(Path("nothing")));
}

// Files

TEST_F(BlobParser, FileThatExistsKeepsItsContentAndTakesTheWrites) {
    Put("f", "0123456789");
    ASSERT_EQ(::chmod(Path("f").c_str(), 0604), 0);
    EXPECT_FALSE(Apply(blob_stream_t().CreateFile(Path("f"), false).Write("", 2, "ab").Write("", 8, "cdef")).thrown);
    EXPECT_EQ(Content("f"), "01ab4567cdef");
    EXPECT_EQ(Look(Path("f")).st_mode & 07777U, 0604U);
    EXPECT_THAT(Traces(), testing::Contains("File [" + Path("f") + "] already exist!"));
}

TEST_F(BlobParser, OverwrittenFileIsANewOne) {
    Put("f", "0123456789");
    std::filesystem::create_hard_link(Path("f"), Path("other"));
    EXPECT_FALSE(Apply(blob_stream_t().CreateFile(Path("f"), true).Write("", 0, "new")).thrown);
    EXPECT_EQ(Content("f"), "new");
    EXPECT_EQ(Content("other"), "0123456789");
}

TEST_F(BlobParser, OverwrittenFileReplacesALinkAndLeavesItsTarget) {
    Put("target", "kept");
    std::filesystem::create_symlink(Path("target"), Path("f"));
    std::filesystem::create_symlink(Path("nothing"), Path("dangling"));
    EXPECT_FALSE(Apply(blob_stream_t()
                           .CreateFile(Path("f"), true)
                           .Write("", 0, "new")
                           .CreateFile(Path("dangling"), true)
                           .Write("", 0, "new too"))
                     .thrown);
    EXPECT_TRUE(S_ISREG(Look(Path("f")).st_mode));
    EXPECT_EQ(Content("f"), "new");
    EXPECT_EQ(Content("target"), "kept");
    EXPECT_TRUE(S_ISREG(Look(Path("dangling")).st_mode));
    EXPECT_FALSE(util::fs_file_exists(Path("nothing")));
}

TEST_F(BlobParser, LinkIsNeverWrittenThrough) {
    Put("target", "kept");
    std::filesystem::create_symlink(Path("target"), Path("f"));
    std::filesystem::create_symlink(Path("nothing"), Path("dangling"));
    EXPECT_EQ(Apply(blob_stream_t()
                        .CreateFile(Path("f"), false)
                        .Write("", 0, "new")
                        .Write(Path("f"), 0, "new")
                        .CreateFile(Path("dangling"), false))
                  .what,
              Fails(4));
    const std::string loop = "Failed to open file [" + Path("f") + "] for writing: Too many levels of symbolic links";
    EXPECT_EQ(Errors().at(0), (error_line_t{"Failed to create file [" + Path("f") + "]", loop}));
    EXPECT_EQ(Errors().at(1), (error_line_t{"Failed to write file [" + Path("f") + "]", loop}));
    EXPECT_EQ(Errors().at(2), (error_line_t{"Failed to write file [" + Path("f") + "]", loop}));
    EXPECT_EQ(Content("target"), "kept");
    EXPECT_FALSE(util::fs_file_exists(Path("nothing")));
}

TEST_F(BlobParser, PipeInTheWayTakesNothing) {
    ASSERT_EQ(::mkfifo(Path("f").c_str(), 0600), 0);
    EXPECT_EQ(Apply(blob_stream_t().CreateFile(Path("f"), false).Write("", 0, "x")).what, Fails(1));
    EXPECT_THAT(Errors(), ElementsAre(error_line_t{"Failed to write file [" + Path("f") + "]",
                                                   "Failed to seek in file [" + Path("f") + "]: Illegal seek"}));
    EXPECT_FALSE(Apply(blob_stream_t().CreateFile(Path("f"), true).Write("", 0, "x")).thrown);
    EXPECT_EQ(Content("f"), "x");
}

TEST_F(BlobParser, FileThatAppearsBeforeItIsCreatedIsNotTouched) {
    Put("f", "theirs");
    tests::faulty_syscalls_t calls;
    calls.Fail<&posix::syscalls_t::lstat>(ENOENT);  // not there yet, when it is looked for
    EXPECT_EQ(Apply(blob_stream_t().CreateFile(Path("f"), true)).what, Fails(1));
    EXPECT_THAT(Errors(), ElementsAre(error_line_t{"Failed to create file [" + Path("f") + "]",
                                                   "Failed to create file [" + Path("f") + kExists}));
    EXPECT_EQ(Content("f"), "theirs");
}

TEST_F(BlobParser, FileCreatedTwiceInOneListIsLoggedAndOpenedAgain) {
    EXPECT_FALSE(Apply(blob_stream_t()
                           .CreateFile(Path("f"), false)
                           .Write("", 0, "abc")
                           .CreateFile("", false)
                           .Write("", 1, "X")
                           .CreateFile("", true)
                           .Write("", 0, "new"))
                     .thrown);
    EXPECT_EQ(Content("f"), "new");
    const error_line_t opened{"File [" + Path("f") + "] already opened.", ""};
    EXPECT_THAT(Errors(), ElementsAre(opened, opened));
    EXPECT_THAT(observed_, IsEmpty());
}

TEST_F(BlobParser, WriteOpensAFileThatIsThere) {
    Put("f", "0123456789");
    EXPECT_FALSE(Apply(blob_stream_t().Write(Path("f"), 4, "abc")).thrown);
    EXPECT_EQ(Content("f"), "0123abc789");
}

TEST_F(BlobParser, WriteOfNothingCreatesNothingAndChangesNothing) {
    Put("f", "old");
    EXPECT_EQ(Apply(blob_stream_t().Write(Path("f"), 100, "").Write(Path("missing"), 0, "")).what, Fails(1));
    EXPECT_EQ(Content("f"), "old");
    EXPECT_FALSE(util::fs_file_exists(Path("missing")));
}

TEST_F(BlobParser, GapsBetweenWritesReadAsZeroes) {
    EXPECT_FALSE(Apply(blob_stream_t().CreateFile(Path("f"), false).Write("", 5, "x")).thrown);
    EXPECT_EQ(Content("f"), std::string(5, '\0') + "x");
}

TEST_F(BlobParser, WriteThatFailsIsCountedAndTheNextIsTried) {
    tests::faulty_syscalls_t calls;
    calls.Fail<&posix::syscalls_t::write>(ENOSPC);
    EXPECT_EQ(Apply(blob_stream_t()
                        .CreateFile(Path("f"), false)
                        .Write("", 0, "abc")
                        .Write("", std::numeric_limits<std::uint64_t>::max(), "abc")
                        .Write("", 0, "def"))
                  .what,
              Fails(2));
    EXPECT_THAT(
        Errors(),
        ElementsAre(error_line_t{"Failed to write file [" + Path("f") + "]",
                                 "Failed to write to file [" + Path("f") + "]: No space left on device"},
                    error_line_t{"Failed to write file [" + Path("f") + "]",
                                 "Failed to seek in file [" + Path("f") + "]: Value too large for defined data type"}));
    EXPECT_EQ(Content("f"), "def");
}

TEST_F(BlobParser, FileIsOpenedOnceForARunOfWrites) {
    Put("old", "");
    blob_stream_t stream;
    stream.CreateFile(Path("new"), false);
    for (std::uint64_t i = 0; i < 50; ++i) {
        stream.Write("", i, "x");
    }
    for (std::uint64_t i = 0; i < 50; ++i) {
        stream.Write(i == 0 ? Path("old") : "", i, "y");
    }
    tests::faulty_syscalls_t calls;
    calls.Watch<&posix::syscalls_t::open>();
    calls.Watch<&posix::syscalls_t::close>();
    EXPECT_FALSE(Apply(stream).thrown);
    EXPECT_EQ(calls.Count<&posix::syscalls_t::open>(), 3);  // the blob file and the two files
    EXPECT_EQ(calls.Count<&posix::syscalls_t::close>(), 3);
    EXPECT_EQ(Content("new"), std::string(50, 'x'));
    EXPECT_EQ(Content("old"), std::string(50, 'y'));
}

// Metadata

TEST_F(BlobParser, MetadataThatCannotBeReadIsAFailure) {
    Put("f", "");
    EXPECT_EQ(Apply(blob_stream_t().Metadata(Path("f"), "abc").Write("", 0, "x")).what, Fails(1));
    EXPECT_THAT(Errors(), ElementsAre(error_line_t{
                              "Failed to deserialize file metadata for file [" + Path("f") + "]",
                              "Failed to retrieve value from the binary stream: received less bytes (3) than expected "
                              "(4)."}));
    EXPECT_EQ(Content("f"), "x");
}

TEST_F(BlobParser, MetadataThatCannotBeAppliedIsToldWithItsBytes) {
    const std::string info = Info(0600, 1);
    EXPECT_EQ(Apply(blob_stream_t().Metadata(Path("missing"), info)).what, Fails(1));
    ASSERT_EQ(Errors().size(), 1U);
    EXPECT_EQ(Errors()[0].text, "Failed to set file metadata for file [" + Path("missing") + "]");
    EXPECT_THAT(Errors()[0].failure, testing::StartsWith("Failed to apply attributes to [" + Path("missing") + "]."));
    std::vector<std::pair<logging::ELevel, std::string>> lines;
    for (const auto& line : log_.Lines()) {
        if (line.section == "fs_log") {
            lines.emplace_back(line.level, line.text);
        }
    }
    ASSERT_EQ(lines.size(), 7U);
    EXPECT_THAT(lines[3], Pair(logging::ELevel::eErr, Errors()[0].text));
    EXPECT_THAT(lines[4], Pair(logging::ELevel::eTrace, "deserialized:"));
    EXPECT_THAT(lines[5], Pair(logging::ELevel::eTrace, util::str_from_bin(info.data(), info.size())));
}

TEST_F(BlobParser, MetadataClosesTheFileAndAWriteOpensItAgain) {
    static std::vector<std::string> opened;
    opened.clear();
    tests::faulty_syscalls_t calls;
    calls.Table().open = [](const char* path, int flags, mode_t mode) {
        if ((flags & O_ACCMODE) == O_RDWR) {
            opened.emplace_back(path);
        }
        return posix::real_syscalls().open(path, flags, mode);
    };
    EXPECT_FALSE(Apply(blob_stream_t()
                           .CreateFile(Path("f"), false)
                           .Write("", 0, "abc")
                           .Metadata("", Info(0600, 77))
                           .Write("", 1, "X"))
                     .thrown);
    EXPECT_EQ(Content("f"), "aXc");
    EXPECT_THAT(opened, ElementsAre(Path("f"), Path("f")));
}

TEST_F(BlobParser, MetadataOfALinkIsNotThatOfItsTarget) {
    Put("target", "");
    ASSERT_EQ(::chmod(Path("target").c_str(), 0640), 0);
    std::filesystem::create_symlink(Path("target"), Path("f"));
    Apply(blob_stream_t().Metadata(Path("f"), Info(0777, 5)));
    EXPECT_EQ(Look(Path("target")).st_mode & 07777U, 0640U);
    EXPECT_NE(Look(Path("target")).st_mtim.tv_sec, 5);
}

}  // namespace
