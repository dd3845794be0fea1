#include "agent/blob/content_writer.h"

#include <string>
#include <string_view>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/blocks.h"

namespace agent::blob {
namespace {

using namespace std::string_literals;
using testing::ElementsAre;

class ContentWriter : public testing::Test {
  protected:
    void Data(std::string_view bytes) {
        writer_.Put(io::area::CDataArea(0, tests::DataBlock(at_, bytes)));
        at_ += bytes.size();
    }
    void Hole(std::uint64_t size) {
        writer_.Put(io::area::CDataArea(0, io::block::CFibBlock::NewSparseBlock(at_, 0, size)));
        at_ += size;
    }

    std::uint64_t at_ = 0;
    std::vector<std::string> writes_;
    content_writer_t writer_{[this](std::uint64_t offset, const void* data, std::uint64_t size) {
        writes_.push_back(std::to_string(offset) + ": " + std::string(static_cast<const char*>(data), size));
    }};
};

TEST_F(ContentWriter, EmptyFileIsNotWrittenTo) {
    writer_.Finish();
    EXPECT_THAT(writes_, ElementsAre());
}

TEST_F(ContentWriter, DataIsWrittenWhereItBelongsAndHolesAreNot) {
    Hole(10);
    Data("abc");
    Hole(1 << 20);
    Data("d");
    writer_.Finish();
    EXPECT_THAT(writes_, ElementsAre("10: abc", "1048589: d"));
    EXPECT_EQ(writer_.GetWritten(), 4u);
}

TEST_F(ContentWriter, HoleAtTheEndCostsItsLastByte) {
    Data("abc");
    Hole(7);
    Hole(5);
    writer_.Finish();
    EXPECT_THAT(writes_, ElementsAre("0: abc", "14: "s + '\0'));
    EXPECT_EQ(writer_.GetWritten(), 3u);
}

TEST_F(ContentWriter, FileThatIsAHoleIsOneByte) {
    Hole(1);
    writer_.Finish();
    EXPECT_THAT(writes_, ElementsAre("0: "s + '\0'));
}

}  // namespace
}  // namespace agent::blob
