#include "agent/blob/blob_files.h"

#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "mirrowen/posix/errno_exc.h"
#include "tests/support/caught_error.h"
#include "tests/support/temp_dir.h"

namespace agent::blob {
namespace {

using testing::ElementsAre;

TEST(BlobFiles, OfADirectoryAreInTheOrderOfTheirNumbers) {
    const tests::temp_dir_t dir;
    for (const char* const name : {"blobfs10", "blobfs2", "blobfs0", "blobfs18446744073709551616"}) {
        tests::WriteFile(dir / name, "");
    }
    EXPECT_THAT(BlobFilesIn(dir.path()),
                ElementsAre(dir / "blobfs0", dir / "blobfs2", dir / "blobfs10", dir / "blobfs18446744073709551616"));
    EXPECT_THAT(BlobFilesIn(dir.path() + "/"), BlobFilesIn(dir.path()));
}

TEST(BlobFiles, OtherNamesAreLeftOut) {
    const tests::temp_dir_t dir;
    for (const char* const name :
         {"blobfs", "blobfs01", "blobfs1x", "blobfs-1", "Blobfs1", "xblobfs1", "blobfs1.tmp"}) {
        tests::WriteFile(dir / name, "");
    }
    EXPECT_THAT(BlobFilesIn(dir.path()), ElementsAre());
    EXPECT_THROW(BlobFilesIn(dir / "missing"), posix::errno_exc_t);
}

TEST(BlobFiles, DirectoryStandsForItsFilesInItsPlace) {
    const tests::temp_dir_t dir;
    std::filesystem::create_directory(dir / "d");
    tests::WriteFile(dir / "d/blobfs1", "");
    tests::WriteFile(dir / "d/blobfs0", "");
    EXPECT_THAT(ExpandBlobPaths({dir / "z", dir / "d", "a"}),
                ElementsAre(dir / "z", dir / "d/blobfs0", dir / "d/blobfs1", "a"));
}

TEST(BlobFiles, DirectoryWithoutAnyIsRefused) {
    const tests::temp_dir_t dir;
    EXPECT_THAT(tests::CatchError([&] { ExpandBlobPaths({dir.path()}); }),
                tests::Throws("exc::CRuntimeExc", "There is no blob file in [" + dir.path() + "]."));
}

}  // namespace
}  // namespace agent::blob
