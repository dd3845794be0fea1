#include "agent/query/content_digest.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>

#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/posix/errno_exc.h"
#include "tests/support/faulty_syscalls.h"
#include "tests/support/temp_dir.h"

namespace agent::query {
namespace {

class ContentDigest : public testing::Test {
  protected:
    std::string At(const std::string& name) const { return dir_ / name; }

    static content_digest_t Of(const std::string& text) {
        return {text.size(), digest::ComputeBlockDigest(std::as_bytes(std::span(text)))};
    }

    std::optional<content_digest_t> Ask(const std::string& name, const std::stop_token& stop = {}) const {
        return DigestFile(*root_, name, stop);
    }

    tests::temp_dir_t dir_;
    std::shared_ptr<const confined_root_t> root_ = confined_root_t::Open(dir_.path());
};

std::string Pattern(std::size_t size) {
    std::string text(size, '\0');
    for (std::size_t i = 0; i < size; ++i) {
        text[i] = static_cast<char>(i * 31 + i / 257 + 1);
    }
    return text;
}

TEST_F(ContentDigest, IsThatOfAllBytes) {
    for (const std::size_t size : {std::size_t{0}, std::size_t{1}, std::size_t{1} << 20, (std::size_t{3} << 20) + 17}) {
        tests::WriteFile(At("file"), Pattern(size));
        EXPECT_EQ(Ask("file"), Of(Pattern(size))) << size;
    }
}

TEST_F(ContentDigest, HolesAreZeroesWhereverTheyAre) {
    const std::string data = Pattern(100'000);
    std::string expected(5 << 20, '\0');
    std::fstream file(At("file"), std::ios::out | std::ios::binary);
    for (const std::size_t at : {std::size_t{1} << 20, std::size_t{3} << 20}) {
        file.seekp(static_cast<std::streamoff>(at));
        file << data;
        expected.replace(at, data.size(), data);
    }
    file.close();
    std::filesystem::resize_file(At("file"), expected.size());
    EXPECT_EQ(Ask("file"), Of(expected));
}

TEST_F(ContentDigest, HolesAreNotRead) {
    tests::WriteFile(At("file"), "x");
    std::filesystem::resize_file(At("file"), std::uint64_t{1} << 33);
    tests::faulty_syscalls_t calls;
    calls.Watch<&posix::syscalls_t::read>();
    EXPECT_EQ(Ask("file")->size, std::uint64_t{1} << 33);
    EXPECT_LE(calls.Count<&posix::syscalls_t::read>(), 2);
}

TEST_F(ContentDigest, FileSystemThatKnowsNoHolesIsReadAll) {
    tests::WriteFile(At("file"), Pattern(3000));
    std::filesystem::resize_file(At("file"), 100'000);
    tests::faulty_syscalls_t calls;
    calls.Table().lseek = [](int fd, off_t offset, int whence) {
        if (whence == SEEK_DATA || whence == SEEK_HOLE) {
            errno = EINVAL;
            return off_t{-1};
        }
        return posix::real_syscalls().lseek(fd, offset, whence);
    };
    EXPECT_EQ(Ask("file"), Of(Pattern(3000) + std::string(97'000, '\0')));
}

TEST_F(ContentDigest, NothingWhereNoRegularFileIs) {
    std::filesystem::create_directory(At("dir"));
    tests::WriteFile(At("file"), "x");
    std::filesystem::create_symlink("file", At("link"));
    ASSERT_EQ(::mkfifo(At("pipe").c_str(), 0600), 0);
    for (const char* const name : {"dir", "link", "pipe", "missing", "file/below", "link/below"}) {
        EXPECT_EQ(Ask(name), std::nullopt) << name;
    }
}

TEST_F(ContentDigest, ContentIsOnTheStorageBeforeItIsRead) {
    tests::WriteFile(At("file"), "x");
    tests::faulty_syscalls_t calls;
    calls.Fail<&posix::syscalls_t::fsync>(EIO);
    calls.Watch<&posix::syscalls_t::read>();
    EXPECT_THROW(Ask("file"), posix::errno_exc_t);
    EXPECT_EQ(calls.Count<&posix::syscalls_t::read>(), 0);
}

TEST_F(ContentDigest, FileThatShrinksIsNotTold) {
    tests::WriteFile(At("file"), Pattern(3 << 20));
    static std::string victim;
    victim = At("file");
    posix::syscalls_t table = posix::real_syscalls();
    table.read = [](int fd, void* buffer, std::size_t count) {
        EXPECT_EQ(::truncate(victim.c_str(), 10), 0);
        return posix::real_syscalls().read(fd, buffer, count);
    };
    const posix::scoped_syscalls_t scope(table);
    try {
        Ask("file");
        FAIL();
    } catch (const exc::CRuntimeExc& error) {
        EXPECT_EQ(error.Message(), "File [" + At("file") + "] changed while it was read.");
    }
}

TEST_F(ContentDigest, FileThatIsTouchedIsNotTold) {
    tests::WriteFile(At("file"), "text");
    static std::string victim;
    victim = At("file");
    posix::syscalls_t table = posix::real_syscalls();
    table.read = [](int fd, void* buffer, std::size_t count) {
        const timespec times[2] = {{1, 2}, {3, 4}};
        EXPECT_EQ(::utimensat(AT_FDCWD, victim.c_str(), times, 0), 0);
        return posix::real_syscalls().read(fd, buffer, count);
    };
    const posix::scoped_syscalls_t scope(table);
    EXPECT_THROW(Ask("file"), exc::CRuntimeExc);
}

TEST_F(ContentDigest, StopEndsTheReading) {
    tests::WriteFile(At("file"), "text");
    std::stop_source stop;
    stop.request_stop();
    EXPECT_THROW(Ask("file", stop.get_token()), exc::CRuntimeExc);
}

}  // namespace
}  // namespace agent::query
