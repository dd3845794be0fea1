#include "tests/support/faulty_syscalls.h"

#include <gtest/gtest.h>

#include "tests/support/temp_dir.h"

namespace {

using posix::syscalls_t;

TEST(FaultySyscalls, FailsTheChosenCallsOnly) {
    tests::faulty_syscalls_t calls;
    struct stat info = {};
    calls.Fail<&syscalls_t::lstat>(EIO, 2, 2);
    EXPECT_EQ(posix::sys().lstat("/", &info), 0);
    for (int i = 0; i < 2; ++i) {
        errno = 0;
        EXPECT_EQ(posix::sys().lstat("/", &info), -1);
        EXPECT_EQ(errno, EIO);
    }
    EXPECT_EQ(posix::sys().lstat("/", &info), 0);
    EXPECT_EQ(calls.Count<&syscalls_t::lstat>(), 4);
}

TEST(FaultySyscalls, ShortReadsAndCounts) {
    const tests::temp_dir_t dir;
    tests::WriteFile(dir / "f", "abcdef");
    tests::faulty_syscalls_t calls;
    calls.EndShort<&syscalls_t::read>(4);
    const int fd = posix::sys().open((dir / "f").c_str(), O_RDONLY, 0);
    char buffer[6];
    EXPECT_EQ(posix::sys().read(fd, buffer, 6), 4);
    EXPECT_EQ(posix::sys().read(fd, buffer, 6), 2);
    posix::sys().close(fd);
    EXPECT_EQ(calls.Count<&syscalls_t::read>(), 2);
}

TEST(FaultySyscalls, RulesEndWithTheObject) {
    struct stat info = {};
    {
        tests::faulty_syscalls_t calls;
        calls.Fail<&syscalls_t::lstat>(EIO, 1, 100);
        EXPECT_EQ(posix::sys().lstat("/", &info), -1);
    }
    EXPECT_EQ(posix::sys().lstat("/", &info), 0);
    tests::faulty_syscalls_t again;
    again.Watch<&syscalls_t::lstat>();
    EXPECT_EQ(posix::sys().lstat("/", &info), 0);
    EXPECT_EQ(again.Count<&syscalls_t::lstat>(), 1);
}

}  // namespace
