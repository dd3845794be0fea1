#include "tarn/memfs/memfs_file_wstream.h"

#include <algorithm>
#include <type_traits>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/synch/completion_port.h"
#include "tarn/memfs/memfs_mem_slots.h"
#include "tests/support/caught.h"
#include "tests/support/log_capture.h"

namespace {

using tarn::memfs::memfs_file_wstream_t;
using tarn::memfs::memfs_mem_slots_t;
using tarn::memfs::memfs_path_t;
using testing::ElementsAre;

static_assert(std::is_base_of_v<tarn::file_wstream_t, memfs_file_wstream_t>);

class MemfsFileWstreamTest : public testing::Test {
  protected:
    ~MemfsFileWstreamTest() override { memfs_mem_slots_t::Inst().Clear(); }

    static std::string Get(const std::string& name = "file") {
        const auto buffer = memfs_mem_slots_t::Inst().GetSlotExc(name);
        return {buffer->begin(), buffer->end()};
    }
};

TEST_F(MemfsFileWstreamTest, TheSlotIsThereBeforeTheFirstByte) {
    const memfs_file_wstream_t stream(memfs_path_t("MEMFS://file"));
    EXPECT_EQ(Get(), "");
}

TEST_F(MemfsFileWstreamTest, ASlotOfThatNameIsReplaced) {
    const auto old = memfs_mem_slots_t::Inst().CreateSlot("file");
    old->assign({'o', 'l', 'd'});
    memfs_file_wstream_t stream(memfs_path_t("MemFs://file"));
    EXPECT_EQ(Get(), "");
    stream.WriteExc("new bytes", 9);
    EXPECT_EQ(old->size(), 3U);
}

TEST_F(MemfsFileWstreamTest, BytesAreAppendedAndVisibleAtOnce) {
    memfs_file_wstream_t stream(memfs_path_t("MemFs://file"));
    EXPECT_EQ(stream.WriteExc("0123", 4), 4U);
    EXPECT_EQ(Get(), "0123");
    EXPECT_EQ(stream.WriteExc("", 0), 0U);
    EXPECT_EQ(stream.WriteZeroes(2), 2U);
    EXPECT_EQ(stream.WriteExc("45", 2), 2U);
    EXPECT_EQ(Get(), std::string("0123\0\0"
                                 "45",
                                 8));
}

TEST_F(MemfsFileWstreamTest, ThePathHasTheHousesSpelling) {
    EXPECT_EQ(memfs_file_wstream_t(memfs_path_t("mEmFs://File")).GetPath(), "MemFs://File");
}

TEST_F(MemfsFileWstreamTest, SeekingIsRefused) {
    memfs_file_wstream_t stream(memfs_path_t("MemFs://file"));
    const auto caught = tests::Catch([&] { stream.SeekTo(0); });
    EXPECT_TRUE(caught.Is<exc::CRuntimeExc>());
    EXPECT_EQ(caught.what, "MemFs does not support seek operation.");
}

TEST_F(MemfsFileWstreamTest, ClosingDoesNothingAtAll) {
    const auto port = std::make_shared<synch::completion_port_t>();
    memfs_file_wstream_t stream(memfs_path_t("MemFs://file"));
    stream.WriteExc("01", 2);
    stream.Flush();
    stream.Close(port);
    EXPECT_EQ(port.use_count(), 1);
    EXPECT_NO_THROW(port->CheckForErrorsExc());
    stream.WriteExc("23", 2);
    stream.Close(nullptr);
    EXPECT_EQ(Get(), "0123");
}

TEST_F(MemfsFileWstreamTest, TheFileOutlivesTheStream) {
    { memfs_file_wstream_t(memfs_path_t("MemFs://file")).WriteExc("0123", 4); }
    EXPECT_EQ(Get(), "0123");
}

TEST_F(MemfsFileWstreamTest, AStreamWhoseSlotIsGoneGoesOnWriting) {
    memfs_file_wstream_t stream(memfs_path_t("MemFs://file"));
    const auto buffer = memfs_mem_slots_t::Inst().GetSlotExc("file");
    memfs_mem_slots_t::Inst().DeleteSlot("file");
    EXPECT_EQ(stream.WriteExc("0123", 4), 4U);
    EXPECT_EQ(buffer->size(), 4U);
    EXPECT_FALSE(memfs_mem_slots_t::Inst().IsSlotExists("file"));
}

TEST_F(MemfsFileWstreamTest, AWriteThatMemoryCannotHoldNamesAllSizes) {
    memfs_file_wstream_t stream(memfs_path_t("memfs://file"));
    stream.WriteExc("0123", 4);
    const std::uint64_t count = 1ULL << 63;
    const auto caught = tests::Catch([&] { stream.WriteExc("x", count); });
    EXPECT_TRUE(caught.Is<exc::CRuntimeExc>());
    EXPECT_EQ(caught.message,
              "MemFS: Cannot write data to the write stream. File path: [MemFs://file]. Data size: "
              "[9223372036854775808]. Current buffer size: [4].");
    EXPECT_EQ(caught.causes.size(), 1U);
    EXPECT_EQ(stream.WriteExc("45", 2), 2U);
    EXPECT_EQ(Get(), "012345");
}

// Records what it is asked to write.
class recorder_t final : public memfs_file_wstream_t {
  public:
    using memfs_file_wstream_t::memfs_file_wstream_t;
    ~recorder_t() override = default;
    std::uint64_t WriteExc(const void* buffer, std::uint64_t count) override {
        const char* const bytes = static_cast<const char*>(buffer);
        zeroes = zeroes && std::all_of(bytes, bytes + count, [](char byte) { return byte == 0; });
        counts.push_back(count);
        return count + 7;
    }
    bool zeroes = true;
    std::vector<std::uint64_t> counts;
};

TEST_F(MemfsFileWstreamTest, ZeroesGoThroughTheStreamsOwnWrite) {
    recorder_t stream(memfs_path_t("MemFs://file"));
    EXPECT_EQ(stream.WriteZeroes(5), 12U);
    EXPECT_THAT(stream.counts, ElementsAre(5U));
    EXPECT_TRUE(stream.zeroes);
}

}  // namespace
