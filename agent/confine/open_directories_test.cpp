#include "agent/confine/open_directories.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/support/in_child.h"
#include "tests/support/temp_dir.h"

namespace agent {
namespace {

std::string KindOf(int fd) {
    struct stat status {};
    if (::fstat(fd, &status) != 0) {
        return "closed";
    }
    return S_ISDIR(status.st_mode) ? "directory" : S_ISREG(status.st_mode) ? "file" : "other";
}

TEST(CloseDirectories, DirectoriesLeadNowhereAndTheRestStays) {
    const tests::temp_dir_t dir;
    tests::WriteFile(dir / "file", "x");
    const std::string outcome = tests::RunInChild([&] {
        const int readable = ::open(dir.path().c_str(), O_RDONLY | O_DIRECTORY);
        const int bare = ::open(dir.path().c_str(), O_PATH);
        const int inherited = ::dup2(readable, 300);
        const int file = ::open((dir / "file").c_str(), O_RDONLY);
        const std::string before = KindOf(readable) + " " + KindOf(bare) + " " + KindOf(file);
        CloseDirectories();
        const bool reached = ::openat(readable, "file", O_RDONLY) >= 0 || ::openat(bare, "file", O_RDONLY) >= 0;
        return before + ", then " + KindOf(readable) + " " + KindOf(bare) + " " + KindOf(inherited) + " " +
               KindOf(file) + (reached ? ", reached" : "");
    });
    EXPECT_EQ(outcome, "directory directory file, then other other other file");
}

}  // namespace
}  // namespace agent
