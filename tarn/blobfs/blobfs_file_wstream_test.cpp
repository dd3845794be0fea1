#include "tarn/blobfs/blobfs_file_wstream.h"

#include <optional>
#include <stdexcept>
#include <type_traits>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "mirrowen/synch/completion_port.h"
#include "tests/support/blob_stream.h"
#include "tests/support/caught_error.h"
#include "tests/support/log_capture.h"
#include "tests/support/recording_blob_connection.h"

namespace tarn::blobfs {
namespace {

using testing::ElementsAre;
using tests::blob_stream_t;

static_assert(std::is_base_of_v<file_wstream_t, blobfs_file_wstream_t>);
static_assert(sizeof(blobfs_file_wstream_t) == sizeof(file_wstream_t) + sizeof(std::uint64_t) +
                                                   sizeof(std::shared_ptr<BlobCreater>) + sizeof(std::string));

class BlobfsFileWstream : public testing::Test {
  protected:
    const std::vector<std::string>& Payloads() {
        creater_->Finish();
        return connection_->payloads;
    }

    const std::shared_ptr<tests::recording_blob_connection_t> connection_ =
        std::make_shared<tests::recording_blob_connection_t>();
    const std::shared_ptr<BlobCreater> creater_ = std::make_shared<BlobCreater>(connection_);
};

TEST_F(BlobfsFileWstream, StreamThatIsNeverWrittenCreatesTheFile) {
    { const blobfs_file_wstream_t stream(creater_, "/f", true); }
    { const blobfs_file_wstream_t stream(creater_, "/g", false); }
    EXPECT_THAT(Payloads(), ElementsAre(blob_stream_t().CreateFile("/f", true).CreateFile("/g", false).Bytes()));
}

TEST_F(BlobfsFileWstream, WritesFollowOneAnotherFromTheStart) {
    blobfs_file_wstream_t stream(creater_, "/f", true);
    EXPECT_EQ(stream.WriteExc("abc", 3), 3U);
    EXPECT_EQ(stream.WriteExc("", 0), 0U);
    EXPECT_EQ(stream.WriteExc("de", 2), 2U);
    EXPECT_THAT(
        Payloads(),
        ElementsAre(
            blob_stream_t().CreateFile("/f", true).Write("", 0, "abc").Write("", 3, "").Write("", 3, "de").Bytes()));
}

TEST_F(BlobfsFileWstream, SeekingIsNoCommandAndGoesAnywhere) {
    blobfs_file_wstream_t stream(creater_, "/f", false);
    stream.SeekTo(1ULL << 40);
    stream.WriteExc("a", 1);
    stream.SeekTo(5);
    stream.SeekTo(2);
    stream.WriteExc("b", 1);
    EXPECT_THAT(
        Payloads(),
        ElementsAre(blob_stream_t().CreateFile("/f", false).Write("", 1ULL << 40, "a").Write("", 2, "b").Bytes()));
}

TEST_F(BlobfsFileWstream, ZeroesAreRefusedByNameAndTraced) {
    blobfs_file_wstream_t stream(creater_, "/f", false);
    const tests::log_capture_t log;
    EXPECT_THAT(tests::CatchError([&] { stream.WriteZeroes(5); }), tests::Throws("exc::CNotImplExc", "WriteZeroes"));
    EXPECT_THAT(log.Texts(logging::ELevel::eTrace), ElementsAre("WriteZeroes"));
    EXPECT_THAT(Payloads(), ElementsAre(blob_stream_t().CreateFile("/f", false).Bytes()));
}

TEST_F(BlobfsFileWstream, PathIsTheTargets) {
    EXPECT_EQ(blobfs_file_wstream_t(creater_, "/d/f", false).GetPath(), "/d/f");
    EXPECT_EQ(blobfs_file_wstream_t(creater_, "", false).GetPath(), "");
}

// Counts flushes.
class flushed_t final : public blobfs_file_wstream_t {
  public:
    using blobfs_file_wstream_t::blobfs_file_wstream_t;
    ~flushed_t() override = default;
    void Flush() override {
        ++flushes;
        blobfs_file_wstream_t::Flush();
    }
    int flushes = 0;
};

TEST_F(BlobfsFileWstream, ClosingFlushesAndLeavesThePortAlone) {
    flushed_t stream(creater_, "/f", false);
    const auto port = std::make_shared<synch::completion_port_t>();
    stream.Close(port);
    EXPECT_EQ(stream.flushes, 1);
    EXPECT_EQ(port.use_count(), 1);
    EXPECT_NO_THROW(port->CheckForErrorsExc());
    stream.Close(nullptr);
    stream.WriteExc("a", 1);
    EXPECT_THAT(connection_->payloads, testing::IsEmpty());
    EXPECT_THAT(Payloads(), ElementsAre(blob_stream_t().CreateFile("/f", false).Write("", 0, "a").Bytes()));
}

TEST_F(BlobfsFileWstream, TheCreatorIsHeldToTheEnd) {
    std::optional<blobfs_file_wstream_t> stream(std::in_place, creater_, "/f", false);
    EXPECT_EQ(creater_.use_count(), 2);
    stream.reset();
    EXPECT_EQ(creater_.use_count(), 1);
}

TEST_F(BlobfsFileWstream, FailedWriteLeavesThePosition) {
    blobfs_file_wstream_t stream(creater_, "/f", false);
    connection_->onCreated = [] { throw std::runtime_error("refused"); };
    const std::string data(31457280, 'x');
    EXPECT_THAT(tests::CatchError([&] { stream.WriteExc(data.data(), data.size()); }), tests::ThrowsText("refused"));
    connection_->onCreated = nullptr;
    stream.WriteExc("a", 1);
    creater_->Finish();
    EXPECT_EQ(connection_->payloads.back(), blob_stream_t().Write("/f", 0, "a").Bytes());
}

}  // namespace
}  // namespace tarn::blobfs
