#include "agent/copy/file_source.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <vector>

#include "mirrowen/exc/runtime_exc.h"
#include "tests/support/blocks.h"
#include "tests/support/faulty_syscalls.h"
#include "tests/support/hole_map.h"
#include "tests/support/staging_fixture.h"
#include "tests/support/temp_dir.h"

namespace agent::copy {
namespace {

using tests::DataExtentsOf;
using tests::extent_t;
using tests::MakeSparseFile;
using tests::TextOf;

constexpr std::uint64_t kBlock = 65536;

// What a source delivered: the borders of its areas and the bytes of those with data.
struct read_t {
    std::vector<extent_t> blocks;
    std::vector<extent_t> holes;
    std::string bytes;
};

read_t ReadAll(file_source_t& source, std::uint64_t from = 0) {
    read_t all;
    std::uint64_t id = 0;
    while (const auto area = source.ReadNext()) {
        const auto block = area->GetBlock(0);
        EXPECT_EQ(area->GetOffset(), from);
        EXPECT_EQ(block->GetIdentity().id, id++);
        from += area->GetSize();
        if (block->IsSparseBlock()) {
            all.holes.push_back({area->GetOffset(), from});
            all.bytes.append(area->GetSize(), '\0');
        } else {
            all.blocks.push_back({area->GetOffset(), from});
            all.bytes += tests::BytesOf(*block);
        }
    }
    EXPECT_EQ(source.ReadNext(), nullptr);
    return all;
}

class FileSource : public testing::Test {
  protected:
    file_source_t Open(std::uint64_t startOffset = 0, std::uint64_t blockSize = kBlock) const {
        const auto file = posix::posix_file_t::Open4Read(path);
        struct stat examined {};
        EXPECT_EQ(::fstat(file->GetDescriptor(), &examined), 0);
        return {file, examined, blockSize, startOffset};
    }
    std::string Changed(std::uint64_t before, std::uint64_t after) const {
        return "File [" + path + "] changed while it was read: it had [" + std::to_string(before) +
               "] bytes and now has [" + std::to_string(after) + "].";
    }

    const tests::temp_dir_t dir;
    const std::string path = dir / "file";
};

TEST_F(FileSource, EmptyFileHasNoAreas) {
    tests::WriteFile(path, "");
    auto source = Open();
    EXPECT_TRUE(source.KnowsHoles());
    EXPECT_EQ(source.GetDisplayName(), path);
    EXPECT_EQ(source.ReadNext(), nullptr);
    EXPECT_FALSE(source.HasChanged());
}

TEST_F(FileSource, DataIsCutAtMultiplesOfTheBlockSize) {
    const std::string text = std::string(kBlock, 'a') + std::string(kBlock, 'b') + "c";
    tests::WriteFile(path, text);
    auto source = Open();
    const read_t all = ReadAll(source);
    EXPECT_EQ(all.blocks, (std::vector<extent_t>{{0, kBlock}, {kBlock, 2 * kBlock}, {2 * kBlock, 2 * kBlock + 1}}));
    EXPECT_TRUE(all.holes.empty());
    EXPECT_EQ(all.bytes, text);
}

TEST_F(FileSource, HolesAreSparseAreasOfAnyLength) {
    constexpr std::uint64_t kFar = std::uint64_t{1} << 40;
    MakeSparseFile(path, kFar + 3 * kBlock, {{kBlock, 2 * kBlock}, {kFar, kFar + kBlock}});
    auto source = Open();
    std::vector<extent_t> areas;
    while (const auto area = source.ReadNext()) {
        areas.push_back({area->GetOffset(), area->GetOffset() + area->GetSize()});
        EXPECT_EQ(area->GetKind(), areas.size() % 2 == 1 ? io::area::EAreaKind::eSparse : io::area::EAreaKind::eData);
        EXPECT_EQ(area->GetMeta().GetReadSize(), areas.size() / 2 * kBlock);
    }
    EXPECT_EQ(areas, (std::vector<extent_t>{{0, kBlock},
                                            {kBlock, 2 * kBlock},
                                            {2 * kBlock, kFar},
                                            {kFar, kFar + kBlock},
                                            {kFar + kBlock, kFar + 3 * kBlock}}));
}

TEST_F(FileSource, FileOfOneHoleIsOneArea) {
    MakeSparseFile(path, 10 * kBlock + 7, {});
    auto source = Open();
    EXPECT_EQ(ReadAll(source).holes, (std::vector<extent_t>{{0, 10 * kBlock + 7}}));
}

TEST_F(FileSource, BlocksBehindAHoleComeBackToTheMultiples) {
    MakeSparseFile(path, 4 * kBlock, {{kBlock + 8192, 4 * kBlock}});
    auto source = Open();
    EXPECT_EQ(ReadAll(source).blocks,
              (std::vector<extent_t>{{kBlock + 8192, 2 * kBlock}, {2 * kBlock, 3 * kBlock}, {3 * kBlock, 4 * kBlock}}));
}

TEST_F(FileSource, ZeroBytesThatWereWrittenAreData) {
    tests::WriteFile(path, std::string(3 * kBlock, '\0'));
    auto source = Open();
    EXPECT_TRUE(source.KnowsHoles());
    const read_t all = ReadAll(source);
    EXPECT_EQ(all.blocks.size(), 3U);
    EXPECT_TRUE(all.holes.empty());
}

TEST_F(FileSource, AnyMapIsDeliveredAsItIs) {
    const unsigned seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    for (int round = 0; round < 30; ++round) {
        std::vector<extent_t> data;
        std::uint64_t at = 0;
        for (auto piece = random() % 12; piece != 0; --piece) {
            at += random() % 100000;
            const std::uint64_t end = at + random() % 100000;
            data.push_back({at, end});
            at = end;
        }
        const std::uint64_t size = at + random() % 100000;
        const std::uint64_t start = size == 0 ? 0 : random() % 3 * (random() % size) / 2;
        MakeSparseFile(path, size, data);
        auto source = Open(start, std::uint64_t{4096} << random() % 6);
        const read_t all = ReadAll(source, start);
        EXPECT_EQ(all.bytes, tests::ReadFile(path).substr(start));
        std::vector<extent_t> joined;
        for (const extent_t& block : all.blocks) {
            if (!joined.empty() && joined.back().end == block.begin) {
                joined.back().end = block.end;
            } else {
                joined.push_back(block);
            }
        }
        std::vector<extent_t> wanted;
        for (const extent_t& extent : DataExtentsOf(path)) {
            if (extent.end > start) {
                wanted.push_back({std::max(extent.begin, start), extent.end});
            }
        }
        EXPECT_EQ(joined, wanted);
    }
}

TEST_F(FileSource, ReadsFromTheStartOffsetOn) {
    MakeSparseFile(path, 4 * kBlock, {{0, kBlock}, {2 * kBlock, 3 * kBlock}});
    const std::string text = tests::ReadFile(path);
    for (const std::uint64_t start :
         {std::uint64_t{0}, std::uint64_t{1}, kBlock, kBlock + 5, 2 * kBlock + 5, 3 * kBlock, 4 * kBlock - 1}) {
        auto source = Open(start);
        EXPECT_EQ(ReadAll(source, start).bytes, text.substr(start)) << start;
    }
    auto source = Open(2 * kBlock + 5);
    EXPECT_EQ(ReadAll(source, 2 * kBlock + 5).blocks, (std::vector<extent_t>{{2 * kBlock + 5, 3 * kBlock}}));
    for (const std::uint64_t start : {4 * kBlock, 4 * kBlock + 1}) {
        auto none = Open(start);
        EXPECT_EQ(none.ReadNext(), nullptr);
    }
}

class FileSourceWithoutMap : public FileSource, public testing::WithParamInterface<int> {};

TEST_P(FileSourceWithoutMap, ReadsEverythingAsData) {
    MakeSparseFile(path, 3 * kBlock + 1, {{kBlock, 2 * kBlock}});
    tests::faulty_syscalls_t calls;
    calls.Fail<&posix::syscalls_t::lseek>(GetParam(), 1, 1000);
    auto source = Open();
    EXPECT_FALSE(source.KnowsHoles());
    const read_t all = ReadAll(source);
    EXPECT_EQ(all.blocks.size(), 4U);
    EXPECT_TRUE(all.holes.empty());
    EXPECT_EQ(all.bytes, tests::ReadFile(path));
    EXPECT_EQ(calls.Count<&posix::syscalls_t::lseek>(), 1);
}

INSTANTIATE_TEST_SUITE_P(By, FileSourceWithoutMap, testing::Values(EINVAL, EOPNOTSUPP));

TEST_F(FileSource, FailureOfTheMapNamesTheFile) {
    MakeSparseFile(path, 3 * kBlock, {{kBlock, 2 * kBlock}});
    const std::string wanted = "Failed to find the holes of file [" + path + "]: Input/output error";
    for (const int nth : {1, 2, 3, 4}) {
        tests::faulty_syscalls_t calls;
        calls.Fail<&posix::syscalls_t::lseek>(EIO, nth);
        EXPECT_EQ(TextOf([&] {
                      auto source = Open();
                      ReadAll(source);
                  }),
                  wanted)
            << nth;
    }
}

// The map answers one question and then no more.
TEST_F(FileSource, MapThatGoesAwayMeanwhileLosesNothing) {
    MakeSparseFile(path, 5 * kBlock + 9, {{kBlock, 2 * kBlock}, {3 * kBlock, 4 * kBlock}});
    for (const int nth : {2, 3, 4, 5}) {
        tests::faulty_syscalls_t calls;
        calls.Fail<&posix::syscalls_t::lseek>(EINVAL, nth, 1000);
        auto source = Open();
        EXPECT_EQ(ReadAll(source).bytes, tests::ReadFile(path)) << nth;
    }
}

// What was data when it was found is a hole when its end is looked for: every answer to SEEK_HOLE is the place itself.
TEST_F(FileSource, MapThatChangesBetweenTwoQuestionsLosesNothing) {
    MakeSparseFile(path, 4 * kBlock + 9, {{kBlock + 4096, 2 * kBlock}, {3 * kBlock, 4 * kBlock}});
    tests::faulty_syscalls_t calls;
    calls.Table().lseek = [](int fd, off_t offset, int whence) {
        return whence == SEEK_HOLE ? offset : posix::real_syscalls().lseek(fd, offset, whence);
    };
    auto source = Open();
    const read_t all = ReadAll(source);
    EXPECT_EQ(all.bytes, tests::ReadFile(path));
    EXPECT_LE(all.blocks.size() + all.holes.size(), 8U);
}

TEST_F(FileSource, AnswersOutsideTheFileAreNotBelieved) {
    MakeSparseFile(path, 4 * kBlock, {{kBlock, 2 * kBlock}});
    tests::faulty_syscalls_t calls;
    calls.Table().lseek = [](int, off_t offset, int whence) {
        return whence == SEEK_HOLE ? std::numeric_limits<off_t>::max() : offset / 2;
    };
    auto source = Open();
    EXPECT_EQ(ReadAll(source).bytes, tests::ReadFile(path));
}

TEST_F(FileSource, HolePunchedWhileReadingIsReadAsItWasFound) {
    MakeSparseFile(path, 4 * kBlock, {{0, 4 * kBlock}});
    auto source = Open();
    ASSERT_NE(source.ReadNext(), nullptr);
    {
        const posix::unique_fd_t fd(::open(path.c_str(), O_RDWR | O_CLOEXEC));
        if (::fallocate(fd.get(), FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, 2 * kBlock, kBlock) < 0) {
            GTEST_SKIP() << "the file system punches no holes";
        }
    }
    std::string rest;
    while (const auto area = source.ReadNext()) {
        ASSERT_EQ(area->GetKind(), io::area::EAreaKind::eData);
        rest += tests::BytesOf(*area->GetBlock(0));
    }
    EXPECT_EQ(rest, tests::ReadFile(path).substr(kBlock));
    EXPECT_TRUE(source.HasChanged());
}

TEST_F(FileSource, ShrinkingFileFails) {
    tests::WriteFile(path, std::string(3 * kBlock, 'a'));
    for (const std::uint64_t size : {2 * kBlock, kBlock + 1, std::uint64_t{0}}) {
        std::filesystem::resize_file(path, 3 * kBlock);
        auto source = Open();
        ASSERT_NE(source.ReadNext(), nullptr);
        std::filesystem::resize_file(path, size);
        EXPECT_EQ(TextOf([&] {
                      while (source.ReadNext()) {
                      }
                  }),
                  Changed(3 * kBlock, size));
    }
}

TEST_F(FileSource, FileThatLosesItsHoleAtTheEndFails) {
    MakeSparseFile(path, 3 * kBlock, {{0, kBlock}});
    auto source = Open();
    ASSERT_NE(source.ReadNext(), nullptr);
    std::filesystem::resize_file(path, kBlock);
    EXPECT_EQ(TextOf([&] {
                  while (source.ReadNext()) {
                  }
              }),
              Changed(3 * kBlock, kBlock));
}

TEST_F(FileSource, GrowingFileFails) {
    tests::WriteFile(path, "abc");
    auto source = Open();
    std::ofstream(path, std::ios::app) << "more";
    EXPECT_EQ(TextOf([&] { ReadAll(source); }), Changed(3, 7));
}

TEST_F(FileSource, WriteThatKeepsTheSizeIsNoticed) {
    tests::WriteFile(path, "abc");
    std::filesystem::last_write_time(path, std::filesystem::file_time_type::clock::now() - std::chrono::hours(1));
    auto source = Open();
    std::ofstream(path, std::ios::in) << "xyz";
    EXPECT_EQ(ReadAll(source).bytes, "xyz");
    EXPECT_TRUE(source.HasChanged());
}

TEST_F(FileSource, ChangeWithAnOldModificationTimeIsNoticed) {
    tests::WriteFile(path, "abc");
    const auto file = posix::posix_file_t::Open4Read(path);
    struct stat examined {};
    ASSERT_EQ(::fstat(file->GetDescriptor(), &examined), 0);
    examined.st_ctim.tv_sec -= 1;  // as if it had been examined before the last change
    file_source_t source(file, examined, kBlock);
    ReadAll(source);
    EXPECT_TRUE(source.HasChanged());
}

TEST_F(FileSource, ReadingAloneChangesNothing) {
    tests::WriteFile(path, "abc");
    auto source = Open();
    tests::ReadFile(path);
    ReadAll(source);
    EXPECT_FALSE(source.HasChanged());
}

TEST_F(FileSource, InterruptedAndShortReadsGoOn) {
    const std::string text(10, 'a');
    tests::WriteFile(path, text + "b");
    tests::faulty_syscalls_t calls;
    calls.EndShort<&posix::syscalls_t::pread>(3);
    calls.Fail<&posix::syscalls_t::pread>(EINTR, 2, 2);
    auto source = Open();
    EXPECT_EQ(ReadAll(source).bytes, text + "b");
    EXPECT_EQ(calls.Count<&posix::syscalls_t::pread>(), 6);
}

TEST_F(FileSource, FailedReadNamesTheFile) {
    tests::WriteFile(path, "abc");
    tests::faulty_syscalls_t calls;
    calls.Fail<&posix::syscalls_t::pread>(EIO);
    auto source = Open();
    EXPECT_EQ(TextOf([&] { source.ReadNext(); }), "Failed to read from file [" + path + "]: Input/output error");
}

TEST_F(FileSource, FileThatCannotBeExaminedAtTheEndFails) {
    tests::WriteFile(path, "abc");
    auto source = Open();
    ASSERT_NE(source.ReadNext(), nullptr);
    tests::faulty_syscalls_t calls;
    calls.Fail<&posix::syscalls_t::fstat>(EIO);
    EXPECT_EQ(TextOf([&] { source.ReadNext(); }), "Failed to examine file [" + path + "]: Input/output error");
}

}  // namespace
}  // namespace agent::copy
