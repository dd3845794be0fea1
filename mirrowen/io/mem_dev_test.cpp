#include "mirrowen/io/mem_dev.h"

#include "mirrowen/cnt/array.h"

namespace io {

namespace {

using buffer_t = cnt::array_t<char, std::allocator<char>>;
using device_t = mem_dev_tt<buffer_t>;

static_assert(std::is_base_of_v<io_dev_t, device_t>);

std::string Content(const device_t& device) {
    return {device.GetBuffer()->begin(), device.GetBuffer()->end()};
}

TEST(MemDevTest, WritesAppendAndGrowTheBuffer) {
    device_t device;
    EXPECT_EQ(device.Write("abc", 3), 3U);
    EXPECT_EQ(device.Write("de", 2), 2U);
    EXPECT_EQ(Content(device), "abcde");
    EXPECT_EQ(device.GetOffset(), 5U);
    EXPECT_EQ(device.Remaining(), 0U);
}

TEST(MemDevTest, ReadsStopAtTheEndOfTheBuffer) {
    device_t device(std::make_shared<buffer_t>(buffer_t{'a', 'b', 'c'}));
    char target[4] = {};
    EXPECT_EQ(device.Remaining(), 3U);
    EXPECT_EQ(device.Read(target, 2), 2U);
    EXPECT_EQ(device.Read(target + 2, 2), 1U);
    EXPECT_STREQ(target, "abc");
    EXPECT_EQ(device.Read(target, 1), 0U);
}

TEST(MemDevTest, WritingInTheMiddleReplacesAndThenGrows) {
    device_t device;
    device.Write("abcd", 4);
    device.Rewind(2);
    device.Write("XYZ", 3);
    EXPECT_EQ(Content(device), "abXYZ");
    device.Rewind();
    device.Write("_", 1);
    EXPECT_EQ(Content(device), "_bXYZ");
}

TEST(MemDevTest, RewindStopsAtTheEnd) {
    device_t device;
    device.Write("ab", 2);
    device.Rewind(7);
    EXPECT_EQ(device.GetOffset(), 2U);
}

TEST(MemDevTest, ACountOfZeroChangesNothing) {
    device_t device;
    device.Write("a", 1);
    device.Rewind();
    char untouched = 'u';
    EXPECT_EQ(device.Write(nullptr, 0), 0U);
    EXPECT_EQ(device.Read(&untouched, 0), 0U);
    device.Flush();
    EXPECT_EQ(untouched, 'u');
    EXPECT_EQ(device.GetOffset(), 0U);
    EXPECT_EQ(Content(device), "a");
}

TEST(MemDevTest, ABufferThatItsOtherHolderShrankIsFilledWithZeroes) {
    auto buffer = std::make_shared<buffer_t>();
    device_t device(buffer);
    device.Write("abcd", 4);
    buffer->resize(1);
    char byte = 0;
    EXPECT_EQ(device.Remaining(), 0U);
    EXPECT_EQ(device.Read(&byte, 1), 0U);
    device.Write("e", 1);
    EXPECT_EQ(Content(device), std::string("a\0\0\0e", 5));
}

}  // namespace

}  // namespace io
