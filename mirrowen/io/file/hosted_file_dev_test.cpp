#include "mirrowen/io/file/hosted_file_dev.h"

#include <sys/stat.h>
#include <unistd.h>

#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/posix/errno_exc.h"
#include "tests/support/temp_dir.h"

namespace io::file {

namespace {

class HostedFileDevTest : public ::testing::Test {
  protected:
    void MakeFile(const std::string& content) const { tests::WriteFile(path_, content); }

    std::string Content() const { return tests::ReadFile(path_); }

    static int ErrnoOf(const std::function<void()>& action) {
        try {
            action();
        } catch (const posix::errno_exc_t& error) {
            EXPECT_THAT(error.Message(), ::testing::HasSubstr("/disk]"));
            return error.GetErrno();
        }
        return 0;
    }

    tests::temp_dir_t dir_;
    const std::string path_ = dir_ / "disk";
};

TEST_F(HostedFileDevTest, ModesAreNumbered) {
    EXPECT_EQ(static_cast<int>(ECreateMode::eOpenExisting), 1);
    EXPECT_EQ(static_cast<int>(ECreateMode::eOpenOrCreate), 2);
}

TEST_F(HostedFileDevTest, ReadsAtOffsetsUpToTheEnd) {
    MakeFile("0123456789");
    const auto device = hosted_file_dev_t::Create(path_, true, ECreateMode::eOpenExisting, std::nullopt);
    EXPECT_EQ(device->GetSize(), 10U);
    char buffer[8] = {};
    EXPECT_EQ(device->ReadAt(7, buffer, 3), 3U);
    EXPECT_STREQ(buffer, "789");
    EXPECT_EQ(device->ReadAt(2, buffer, 1), 1U);
    EXPECT_STREQ(buffer, "289");
    EXPECT_EQ(device->ReadAt(8, buffer, 8), 2U);
    EXPECT_EQ(device->ReadAt(10, buffer, 1), 0U);
    EXPECT_EQ(device->ReadAt(100, buffer, 1), 0U);
}

TEST_F(HostedFileDevTest, AReadOnlyDeviceRefusesToWrite) {
    MakeFile("abc");
    const auto device = hosted_file_dev_t::Create(path_, true, ECreateMode::eOpenExisting, std::nullopt);
    try {
        device->WriteAt(0, "x", 1);
        ADD_FAILURE();
    } catch (const exc::CRuntimeExc& error) {
        EXPECT_EQ(error.Message(), "Device [" + path_ + "] was opened for reading only.");
    }
    EXPECT_EQ(Content(), "abc");
}

TEST_F(HostedFileDevTest, OpeningAnExistingFileNeedsOne) {
    for (const bool readOnly : {true, false}) {
        EXPECT_EQ(
            ErrnoOf([&] { hosted_file_dev_t::Create(path_, readOnly, ECreateMode::eOpenExisting, std::nullopt); }),
            ENOENT);
    }
    EXPECT_NE(::access(path_.c_str(), F_OK), 0);
}

TEST_F(HostedFileDevTest, OpenOrCreateMakesAPrivateFileAndKeepsWhatIsThere) {
    {
        const auto device = hosted_file_dev_t::Create(path_, false, ECreateMode::eOpenOrCreate, std::nullopt);
        EXPECT_EQ(device->GetSize(), 0U);
        device->WriteAt(2, "cd", 2);
        device->WriteAt(0, "a", 1);
        device->Flush();
    }
    struct stat status;
    ASSERT_EQ(::stat(path_.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0600U);
    const auto device = hosted_file_dev_t::Create(path_, false, ECreateMode::eOpenOrCreate, std::nullopt);
    EXPECT_EQ(device->GetSize(), 4U);
    device->WriteAt(4, "e", 1);
    EXPECT_EQ(Content(), std::string("a\0cde", 5));
}

TEST_F(HostedFileDevTest, OpenOrCreateFailsWhereNothingCanBeMade) {
    ASSERT_EQ(::mkdir(path_.c_str(), 0700), 0);
    EXPECT_EQ(ErrnoOf([&] { hosted_file_dev_t::Create(path_, false, ECreateMode::eOpenOrCreate, std::nullopt); }),
              EISDIR);
}

TEST_F(HostedFileDevTest, AWritableDeviceReads) {
    MakeFile("abc");
    const auto device = hosted_file_dev_t::Create(path_, false, ECreateMode::eOpenExisting, std::nullopt);
    device->WriteAt(1, "X", 1);
    char buffer[3];
    EXPECT_EQ(device->ReadAt(0, buffer, 3), 3U);
    EXPECT_EQ(std::string(buffer, 3), "aXc");
}

TEST_F(HostedFileDevTest, ATemplateReservesSpaceAndLeavesTheSize) {
    constexpr std::uint64_t kExpected = 1 << 20;
    const auto device = hosted_file_dev_t::Create(path_, false, ECreateMode::eOpenOrCreate, file_template_t(kExpected));
    EXPECT_EQ(device->GetSize(), 0U);
    struct stat status;
    ASSERT_EQ(::stat(path_.c_str(), &status), 0);
    // A file system without reservations has none; any other has all of it.
    EXPECT_TRUE(status.st_blocks == 0 || static_cast<std::uint64_t>(status.st_blocks) * 512 >= kExpected)
        << status.st_blocks;
}

TEST_F(HostedFileDevTest, AnImpossibleTemplateIsIgnored) {
    for (const std::uint64_t expected : {std::uint64_t{0}, std::uint64_t{1} << 62, ~std::uint64_t{0}}) {
        const auto device =
            hosted_file_dev_t::Create(path_, false, ECreateMode::eOpenOrCreate, file_template_t(expected));
        EXPECT_EQ(device->GetSize(), 0U);
    }
}

}  // namespace

}  // namespace io::file
