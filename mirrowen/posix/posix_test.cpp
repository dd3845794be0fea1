#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

#include <cerrno>
#include <type_traits>
#include <utility>

#include "mirrowen/posix/errno_exc.h"
#include "mirrowen/posix/syscalls.h"
#include "mirrowen/posix/unique_fd.h"
#include "tests/support/faulty_syscalls.h"

namespace {

using posix::errno_exc_t;
using posix::unique_fd_t;

static_assert(std::is_nothrow_copy_constructible_v<errno_exc_t>);
static_assert(!std::is_copy_constructible_v<unique_fd_t> && std::is_nothrow_move_constructible_v<unique_fd_t>);

TEST(ErrnoExc, CarriesMessagePathAndErrno) {
    const errno_exc_t error("Failed to open [%1].", "/a %1", ENOENT);
    EXPECT_EQ(error.Message(), "Failed to open [/a %1].: No such file or directory");
    EXPECT_STREQ(error.what(), error.Message().c_str());
    EXPECT_EQ(error.GetPath(), "/a %1");
    EXPECT_EQ(error.GetErrno(), ENOENT);
    EXPECT_EQ(error.GetErrnoDescr(), "No such file or directory");
}

TEST(ErrnoExc, UnknownNumberIsStillDescribed) {
    EXPECT_EQ(posix::DescribeErrno(99999), "Unknown error 99999");
}

bool is_open(int fd) {
    return ::fcntl(fd, F_GETFD) != -1;
}

int open_root() {
    return ::open("/", O_RDONLY | O_CLOEXEC);
}

TEST(UniqueFd, ClosesWhatItHolds) {
    int number = -1;
    {
        const unique_fd_t fd(open_root());
        number = fd.get();
        EXPECT_TRUE(fd && is_open(number));
    }
    EXPECT_FALSE(is_open(number));
}

TEST(UniqueFd, MoveHandsTheDescriptorOver) {
    unique_fd_t first(open_root());
    unique_fd_t second(open_root());
    const int kept = first.get();
    const int closed = second.get();
    second = std::move(first);
    EXPECT_FALSE(is_open(closed));
    EXPECT_EQ(second.get(), kept);
    EXPECT_FALSE(first);  // NOLINT(bugprone-use-after-move): the state after a move is what is tested
    unique_fd_t third(std::move(second));
    EXPECT_EQ(third.get(), kept);
}

TEST(UniqueFd, ReleaseGivesUpOwnership) {
    unique_fd_t fd(open_root());
    const int number = fd.release();
    EXPECT_FALSE(fd);
    fd.reset();
    EXPECT_TRUE(is_open(number));
    ::close(number);
}

TEST(UniqueFd, InterruptedCloseIsNotRepeated) {
    tests::faulty_syscalls_t calls;
    calls.Fail<&posix::syscalls_t::close>(EINTR, 1, 2);
    const int number = open_root();
    unique_fd_t(number).reset();
    EXPECT_EQ(calls.Count<&posix::syscalls_t::close>(), 1);
    ::close(number);
}

int failing_fsync(int /*fd*/) {
    errno = EDQUOT;
    return -1;
}

TEST(Syscalls, TableIsReplacedForAScope) {
    EXPECT_EQ(&posix::sys(), &posix::real_syscalls());
    posix::syscalls_t table = posix::real_syscalls();
    table.fsync = failing_fsync;
    {
        const posix::scoped_syscalls_t scope(table);
        EXPECT_EQ(posix::sys().fsync(0), -1);
        EXPECT_EQ(errno, EDQUOT);
        {
            const posix::scoped_syscalls_t inner(posix::real_syscalls());
            EXPECT_EQ(&posix::sys(), &posix::real_syscalls());
        }
        EXPECT_EQ(&posix::sys(), &table);
    }
    EXPECT_EQ(&posix::sys(), &posix::real_syscalls());
}

}  // namespace
