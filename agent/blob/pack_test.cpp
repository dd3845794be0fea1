#include "agent/blob/pack.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "agent/blob/apply_blob.h"
#include "agent/blob/blob_contents.h"
#include "agent/blob/blob_files.h"
#include "mirrowen/util/str_format.h"
#include "tests/support/caught_error.h"
#include "tests/support/faulty_syscalls.h"
#include "tests/support/hole_map.h"
#include "tests/support/temp_dir.h"
#include "tests/support/tree_compare.h"

namespace agent::blob {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::StartsWith;

// A command as a line: type, path, and the flag or the bytes and their place.
std::string line_of(const shown_command_t& command) {
    std::string line = util::str_format("%1 %2", command.type, command.path);
    line += command.overwrite.value_or(false) ? " overwrite" : "";
    return command.offset ? line + util::str_format(" %1@%2", command.bytes, *command.offset) : line;
}

std::vector<std::string> lines_of(const std::string& blobFile) {
    std::vector<std::string> lines;
    const blob_contents_t contents = ReadBlob(blobFile);
    EXPECT_EQ(contents.checksum, EChecksum::eGood);
    TellCommands(*contents.payload, [&](const shown_command_t& command) {
        EXPECT_EQ(command.fault, "");
        lines.push_back(line_of(command));
    });
    return lines;
}

class PackTest : public testing::Test {
  protected:
    PackTest() { fs::create_directory(At("src")); }

    std::string At(const std::string& name) const { return dir_ / name; }

    pack_report_t Run(const std::vector<std::string>& sources, const std::string& target = "/t",
                      bool overwrite = false) {
        return Pack(sources, {At("out"), target, overwrite});
    }
    // Applied without a failure.
    void Apply(const pack_report_t& report) {
        for (const std::string& file : report.blobFiles) {
            const applied_t applied = ApplyBlob(
                file, [](const std::string& path, const std::string& text) { ADD_FAILURE() << path << ": " << text; });
            EXPECT_FALSE(applied.fault) << file;
        }
    }

    tests::temp_dir_t dir_;
};

TEST_F(PackTest, DirectoriesComeBeforeTheirContentsAndGetTheirAttributesAfterIt) {
    fs::create_directories(At("src/b"));
    tests::WriteFile(At("src/b/f"), "abc");
    tests::WriteFile(At("src/a"), "");
    const pack_report_t report = Run({At("src")});
    ASSERT_THAT(report.blobFiles, ElementsAre(At("out/blobfs0")));
    EXPECT_THAT(lines_of(At("out/blobfs0")),
                ElementsAre("1 /t", "1 /t/src", "2 /t/src/a", "4 /t/src/a", "1 /t/src/b", "2 /t/src/b/f",
                            "3 /t/src/b/f 3@0", "4 /t/src/b/f", "4 /t/src/b", "4 /t/src"));
    EXPECT_EQ(report.files, 2u);
    EXPECT_EQ(report.directories, 2u);
    EXPECT_EQ(report.bytes, 3u);
}

TEST_F(PackTest, WhatIsPackedIsMadeAgainByApplyingIt) {
    fs::create_directories(At("src/deep/er"));
    tests::WriteFile(At("src/deep/er/file"), std::string(3 << 20, 'x') + "end");
    tests::WriteFile(At("src/deep/empty"), "");
    tests::MakeSparseFile(At("src/holes"), (9 << 20) + 1, {{1 << 20, (1 << 20) + 70000}, {9 << 20, (9 << 20) + 1}});
    ASSERT_EQ(::chmod(At("src/deep/er/file").c_str(), 04751), 0);
    ASSERT_EQ(::chmod(At("src/deep/er").c_str(), 0555), 0);
    const timespec times[2] = {{-5, 7}, {-86400, 987654321}};
    for (const char* name : {"src/deep/er/file", "src/deep/er", "src"}) {
        ASSERT_EQ(::utimensat(AT_FDCWD, At(name).c_str(), times, 0), 0);
    }
    Apply(Run({At("src")}, At("t")));
    EXPECT_THAT(tests::CompareTrees(At("src"), At("t/src")), ElementsAre());
    EXPECT_THAT(BlobFilesIn(At("out")), ElementsAre());
}

TEST_F(PackTest, LargeContentIsWrittenInPiecesOfAMebibyteAndGoesOnInTheNextBlobFile) {
    constexpr std::size_t kSize = (31 << 20) + 5;
    tests::WriteFile(At("src/f"), std::string(kSize, 'x'));
    const pack_report_t report = Run({At("src/f")});
    ASSERT_THAT(report.blobFiles, ElementsAre(At("out/blobfs0"), At("out/blobfs1")));
    const std::vector<std::string> first = lines_of(report.blobFiles[0]);
    ASSERT_EQ(first.size(), 32u);
    EXPECT_EQ(first[2], "3 /t/f 1048576@0");
    EXPECT_EQ(first[31], "3 /t/f 1048576@30408704");
    EXPECT_THAT(lines_of(report.blobFiles[1]), ElementsAre("3 /t/f 1048576@31457280", "3 /t/f 5@32505856", "4 /t/f"));
    EXPECT_EQ(report.bytes, kSize);
}

TEST_F(PackTest, HolesAreLeftOutAndOneAtTheEndCostsAByte) {
    tests::MakeSparseFile(At("src/f"), 8 << 20, {{4 << 20, (4 << 20) + 4096}});
    if (tests::DataExtentsOf(At("src/f")).front().begin != 4 << 20) {
        GTEST_SKIP() << "this file system keeps no holes";
    }
    Run({At("src/f")});
    EXPECT_THAT(lines_of(At("out/blobfs0")),
                ElementsAre("1 /t", "2 /t/f", "3 /t/f 4096@4194304", "3 /t/f 1@8388607", "4 /t/f"));
}

TEST_F(PackTest, FilesAreMadeAnewOnlyWhenThatIsAskedFor) {
    tests::WriteFile(At("src/f"), "");
    Run({At("src")}, "/t", true);
    EXPECT_THAT(lines_of(At("out/blobfs0")),
                ElementsAre("1 /t", "1 /t/src", "2 /t/src/f overwrite", "4 /t/src/f", "4 /t/src"));
}

TEST_F(PackTest, SourceWithoutANameGoesStraightBelowTheTargetWhichKeepsItsAttributes) {
    tests::WriteFile(At("src/f"), "");
    Run({At("src/.")}, "t/");
    EXPECT_THAT(lines_of(At("out/blobfs0")), ElementsAre("1 t/", "2 t/f", "4 t/f"));
}

TEST_F(PackTest, LinksFailByNameAndSpecialFilesAreSkipped) {
    fs::create_symlink("f", At("src/link"));
    ASSERT_EQ(::mkfifo(At("src/pipe").c_str(), 0600), 0);
    const pack_report_t report = Run({At("src")});
    ASSERT_EQ(report.failed.size(), 1u);
    EXPECT_EQ(report.failed[0].path, At("src/link"));
    EXPECT_EQ(report.failed[0].text, "A blob file cannot hold a link.");
    ASSERT_EQ(report.skipped.size(), 1u);
    EXPECT_EQ(report.skipped[0].path, At("src/pipe"));
    EXPECT_EQ(report.skipped[0].text, "FIFO");
    EXPECT_THAT(lines_of(At("out/blobfs0")), ElementsAre("1 /t", "1 /t/src", "4 /t/src"));
}

TEST_F(PackTest, TargetPathsThatNoCallTakesFailByName) {
    tests::WriteFile(At("src/fits"), "");
    tests::WriteFile(At("src/fitsno"), "");
    const std::string target = "/" + std::string(4095 - 10, 't');  // and "/src/fits" are 4095 bytes
    const pack_report_t report = Run({At("src")}, target);
    ASSERT_EQ(report.failed.size(), 1u);
    EXPECT_EQ(report.failed[0].path, At("src/fitsno"));
    EXPECT_EQ(report.failed[0].text, "Its target path has [4097] bytes; a path has at most [4095].");
    EXPECT_EQ(report.files, 1u);
}

TEST_F(PackTest, FileThatCannotBeReadLeavesNothingAndTheRestGoesOn) {
    tests::WriteFile(At("src/a"), "a");
    tests::WriteFile(At("src/b"), "b");
    pack_report_t report;
    {
        tests::faulty_syscalls_t calls;
        calls.Fail<&posix::syscalls_t::pread>(EIO, 1);
        report = Run({At("src")});
    }
    ASSERT_EQ(report.failed.size(), 1u);
    EXPECT_EQ(report.failed[0].text, "Failed to read from file [" + At("src/a") + "]: Input/output error");
    EXPECT_THAT(lines_of(At("out/blobfs0")),
                ElementsAre("1 /t", "1 /t/src", "2 /t/src/b", "3 /t/src/b 1@0", "4 /t/src/b", "4 /t/src"));
}

TEST_F(PackTest, FileThatFailsLateIsToldToBeThereInPart) {
    tests::WriteFile(At("src/f"), std::string(6 << 20, 'x'));
    pack_report_t report;
    {
        tests::faulty_syscalls_t calls;
        calls.Fail<&posix::syscalls_t::pread>(EIO, 6);
        report = Run({At("src/f")});
    }
    ASSERT_EQ(report.failed.size(), 1u);
    EXPECT_EQ(report.failed[0].text,
              "Failed to read from file [" + At("src/f") + "]: Input/output error\nThe blob files hold a part of it.");
    EXPECT_EQ(lines_of(At("out/blobfs0")).back(), "3 /t/f 1048576@4194304");
    EXPECT_EQ(report.files, 0u);
}

TEST_F(PackTest, BlobFilesThatCannotBeWrittenEndItAndNoneStays) {
    tests::WriteFile(At("src/f"), std::string(31 << 20, 'x'));
    tests::faulty_syscalls_t calls;
    calls.Fail<&posix::syscalls_t::write>(ENOSPC, 3);  // each blob file has a header and a block
    EXPECT_THAT(tests::CatchError([&] { Run({At("src")}); }).what, testing::HasSubstr("No space left on device"));
    EXPECT_THAT(BlobFilesIn(At("out")), ElementsAre());
}

TEST_F(PackTest, FolderWithBlobFilesIsLeftAsItIs) {
    fs::create_directory(At("out"));
    tests::WriteFile(At("out/blobfs7"), "theirs");
    EXPECT_THAT(
        tests::CatchError([&] { Run({At("src")}); }),
        tests::Throws("exc::CRuntimeExc",
                      "[" + At("out/blobfs7") + "] is there already: blob files go into a directory without any."));
    EXPECT_EQ(tests::ReadFile(At("out/blobfs7")), "theirs");
}

TEST_F(PackTest, WhatCannotBeMeantIsRefusedBeforeAnythingIsWritten) {
    fs::create_directories(At("other/src"));
    const auto refused = [&](const std::vector<std::string>& sources, const std::string& target) {
        return tests::CatchError([&] { Run(sources, target); }).message;
    };
    EXPECT_EQ(refused({At("src"), At("other/src")}, "/t"),
              "[" + At("other/src") + "] would go where another source named [src] goes.");
    EXPECT_EQ(refused({At("src"), At("other/.")}, "/t"),
              "[" + At("other/.") + "] has no name of its own, so it cannot be packed together with others.");
    EXPECT_EQ(refused({dir_.path()}, "/t"), "[" + dir_.path() + "] cannot be packed into itself, [" + At("out") + "].");
    EXPECT_EQ(refused({"tarn://127.0.0.1:1/x"}, "/t"),
              "[tarn://127.0.0.1:1/x] cannot be packed: it is no host path, nor one of a restore view.");
    EXPECT_EQ(refused({"MemFs://x"}, "/t"),
              "[MemFs://x] cannot be packed: it is no host path, nor one of a restore view.");
    EXPECT_EQ(refused({At("src")}, ""), "The target has no path.");
    EXPECT_EQ(refused({At("src")}, std::string(4096, 't')), "The target has [4096] bytes; a path has at most [4095].");
    EXPECT_THAT(refused({At("missing")}, "/t"), testing::HasSubstr(At("missing")));
    EXPECT_FALSE(fs::exists(At("out")));
}

}  // namespace
}  // namespace agent::blob
