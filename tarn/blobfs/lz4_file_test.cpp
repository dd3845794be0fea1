// Frames in files.
#include <string>
#include <string_view>

#include <gtest/gtest.h>

#include "mirrowen/posix/syscalls.h"
#include "tarn/blobfs/lz4.h"
#include "tests/support/caught_error.h"
#include "tests/support/faulty_syscalls.h"
#include "tests/support/temp_dir.h"

namespace tarn::blobfs {
namespace {

using namespace std::string_literals;
using buffer_t = cnt::array_t<char>;
using posix::syscalls_t;

const std::string kFrame = "\x0F\0\0\xF8\x83\x92\x06\xE3\x09\0\0\0\x90"s + "123456789";

class Lz4File : public testing::Test {
  protected:
    void Pack(std::string_view text) const {
        CLz4::compressToFile(std::make_shared<buffer_t>(text.begin(), text.end()), path_);
    }
    std::string Unpack() const {
        const auto buffer = CLz4::decompressFromFile(path_);
        return {buffer->begin(), buffer->end()};
    }
    tests::caught_error_t Refusal(std::string_view bytes) const {
        tests::WriteFile(path_, bytes);
        return tests::CatchError([&] { Unpack(); });
    }

    const tests::temp_dir_t dir_;
    const std::string path_ = dir_ / "frame";
};

TEST_F(Lz4File, FrameIsHeaderAndBlock) {
    Pack("123456789");
    EXPECT_EQ(tests::ReadFile(path_), kFrame);
    EXPECT_EQ(Unpack(), "123456789");
}

TEST_F(Lz4File, EmptyBufferIsAFrameOfThirteenBytes) {
    Pack("");
    EXPECT_EQ(tests::ReadFile(path_), "\x0F\0\0\xF8\0\0\0\0\0\0\0\0\0"s);
    EXPECT_EQ(Unpack(), "");
}

TEST_F(Lz4File, LongerFileOfThatNameEndsWithTheFrame) {
    tests::WriteFile(path_, std::string(1000, 'x'));
    Pack("123456789");
    EXPECT_EQ(tests::ReadFile(path_), kFrame);
}

TEST_F(Lz4File, LargeBufferComesBack) {
    std::string text(5 << 20, '\0');
    for (std::size_t i = 0; i != text.size(); ++i) {
        text[i] = static_cast<char>(i % 251 + i / 1000);
    }
    Pack(text);
    EXPECT_TRUE(Unpack() == text);
}

TEST_F(Lz4File, FileWithoutRoomForAHeaderFailsWithTheStandardLengthError) {
    for (const std::size_t length : std::initializer_list<std::size_t>{0, 5, 11}) {
        const auto caught = Refusal(kFrame.substr(0, length));
        EXPECT_EQ(caught.type, "std::length_error") << length;
        EXPECT_EQ(caught.what, "cannot create std::vector larger than max_size()");
    }
}

TEST_F(Lz4File, HeaderWithoutABlockIsADamagedBlock) {
    EXPECT_EQ(Refusal(kFrame.substr(0, 12)).message,
              "Failed to decompress LZ4 block: Incorrect decompression result or length (result: '-1', expected "
              "length: '9').");
}

TEST_F(Lz4File, EveryCutFrameIsRefused) {
    for (std::size_t length = 12; length != kFrame.size(); ++length) {
        EXPECT_EQ(Refusal(kFrame.substr(0, length)).type, "exc::CRuntimeExc") << length;
    }
}

TEST_F(Lz4File, BytesBehindTheBlockAreRefused) {
    EXPECT_EQ(Refusal(kFrame + "x").type, "exc::CRuntimeExc");
}

TEST_F(Lz4File, FileThatShrinksWhileItIsReadIsADamagedBlock) {
    tests::WriteFile(path_, kFrame);
    tests::faulty_syscalls_t calls;
    static int reads;
    reads = 0;
    calls.Table().read = [](int fd, void* buffer, std::size_t count) -> ssize_t {
        return ++reads == 1 ? posix::real_syscalls().read(fd, buffer, count) : 0;
    };
    EXPECT_EQ(tests::CatchError([&] { Unpack(); }).type, "exc::CRuntimeExc");
    EXPECT_EQ(reads, 2);
}

TEST_F(Lz4File, MissingFileAndFolderAreNamed) {
    EXPECT_THAT(tests::CatchError([&] { Unpack(); }),
                tests::Throws("posix::errno_exc_t",
                              "Failed to open file [" + path_ + "] for reading: No such file or directory"));
    EXPECT_THAT(tests::CatchError([&] { CLz4::compressToFile(std::make_shared<buffer_t>(), dir_ / "none/frame"); }),
                tests::Throws("posix::errno_exc_t", "Failed to open file [" + (dir_ / "none/frame") +
                                                        "] for writing: No such file or directory"));
}

TEST_F(Lz4File, FullDiskIsSaid) {
    tests::faulty_syscalls_t calls;
    calls.Fail<&syscalls_t::write>(ENOSPC, 2);
    EXPECT_THAT(
        tests::CatchError([&] { Pack("123456789"); }),
        tests::Throws("posix::errno_exc_t", "Failed to write to file [" + path_ + "]: No space left on device"));
}

}  // namespace
}  // namespace tarn::blobfs
