#include "agent/send/send_client.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <filesystem>
#include <future>

#include <gmock/gmock.h>

#include "tests/support/caught_error.h"
#include "tests/support/open_descriptors.h"
#include "tests/support/own_threads.h"
#include "tests/support/send_server.h"
#include "tests/support/temp_dir.h"
#include "tests/support/transfer_kit.h"

namespace agent::send {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using tests::ReadAllOf;

constexpr std::uint32_t kBlock = 4096;

/// A client of a server that runs in this process.
class SendClient : public testing::Test {
  protected:
    void SetUp() override { client_.emplace(server_.Endpoint(), net::remote_options_t{.stop = stop_.get_token()}); }

    std::string Place(const std::string& name) const { return dir_ / name; }
    std::string Shown(const std::string& name) const {
        return "tarn://" + net::ToString(server_.Endpoint()) + "/" + name;
    }
    std::shared_ptr<remote_file_t> Open(const std::string& path, std::uint64_t offset = 0,
                                        io::block::EBufTransformType compression = io::block::EBufTransformType::eLz4) {
        return client_->Open({path, offset, kBlock, compression});
    }
    std::string Content(const std::string& path, std::uint64_t offset = 0) { return ReadAllOf(*Open(path, offset)); }
    tests::caught_error_t Failure(const std::string& path, std::uint64_t offset = 0) {
        return tests::CatchError([&] { Content(path, offset); });
    }

    tests::temp_dir_t dir_;
    tests::send_server_t server_{dir_.path()};
    std::stop_source stop_;
    std::optional<send_client_t> client_;
};

TEST_F(SendClient, FilesOfEverySizeAroundTheBlockArrive) {
    for (const std::size_t size : {0, 1, 4095, 4096, 4097, 8192, 40 * 4096 + 5}) {
        const std::string content = tests::Noise(size);
        tests::WriteFile(Place("file"), content);
        const auto file = Open("file");
        EXPECT_EQ(file->GetAnnounced().size, size);
        EXPECT_EQ(file->GetAnnounced().item.info.size, size);
        EXPECT_EQ(ReadAllOf(*file), content) << size;
        EXPECT_EQ(file->ReadNext(), nullptr) << "the end stays the end";
    }
}

TEST_F(SendClient, BlocksArriveWhateverTheyArePackedBy) {
    const std::string content = std::string(100'000, 'a') + tests::Noise(10'000);
    tests::WriteFile(Place("file"), content);
    for (const auto packing : {io::block::EBufTransformType::eNone, io::block::EBufTransformType::eLz4,
                               io::block::EBufTransformType::eZstd}) {
        EXPECT_EQ(ReadAllOf(*Open("file", 0, packing)), content);
    }
}

TEST_F(SendClient, FileFromAnOffsetOnIsItsRest) {
    const std::string content = tests::Noise(3 * kBlock + 7);
    tests::WriteFile(Place("file"), content);
    for (const std::size_t offset : {std::size_t{1}, std::size_t{kBlock}, content.size() - 1, content.size()}) {
        const auto file = Open("file", offset);
        EXPECT_EQ(file->GetAnnounced().size, content.size() - offset);
        EXPECT_EQ(file->GetAnnounced().item.info.size, content.size());
        EXPECT_EQ(ReadAllOf(*file), content.substr(offset));
    }
    EXPECT_THAT(Failure("file", content.size() + 1).what,
                HasSubstr("file] has [12295] bytes, so it cannot be sent from [12296] on."));
    EXPECT_EQ(Content("file"), content) << "the client goes on";
}

TEST_F(SendClient, AttributesComeWithTheItem) {
    tests::WriteFile(Place("file"), "abc");
    ASSERT_EQ(::chmod(Place("file").c_str(), 04751), 0);
    const timespec times[2] = {{1, 2}, {-5, 123'456'789}};
    ASSERT_EQ(::utimensat(AT_FDCWD, Place("file").c_str(), times, 0), 0);
    const auto file = Open("file");
    const item_t& item = file->GetAnnounced().item;
    EXPECT_EQ(item.kind, EItemKind::eFile);
    EXPECT_EQ(item.path, "file");
    EXPECT_EQ(item.info.mode, 04751U);
    EXPECT_EQ(item.info.modificationTime, (util::SFileTime{-5, 123'456'789}));
    EXPECT_EQ(item.info.owner.id, ::geteuid());
}

TEST_F(SendClient, DirectoriesTheRootAndLinksComeWithoutContent) {
    std::filesystem::create_directory(Place("dir"));
    ASSERT_EQ(::chmod(Place("dir").c_str(), 0711), 0);
    std::filesystem::create_symlink("to/no\nwhere", Place("link"));
    for (const std::string name : {"dir", "."}) {
        const auto directory = Open(name);
        EXPECT_EQ(directory->GetAnnounced().item.kind, EItemKind::eDirectory);
        EXPECT_EQ(directory->GetAnnounced().item.info.mode, name == "dir" ? 0711U : 0700U);
        EXPECT_EQ(directory->ReadNext(), nullptr);
    }
    const auto link = Open("link");
    EXPECT_EQ(link->GetAnnounced().item.kind, EItemKind::eLink);
    EXPECT_EQ(link->GetAnnounced().item.second, "to/no\nwhere");
    EXPECT_EQ(link->ReadNext(), nullptr);
}

TEST_F(SendClient, HolesArriveAsHoles) {
    constexpr off_t kSize = off_t{1} << 30;
    tests::WriteFile(Place("file"), "begin");
    ASSERT_EQ(::truncate(Place("file").c_str(), kSize), 0);
    const auto file = Open("file");
    EXPECT_TRUE(io::area::KnowsHoles(*file));
    std::uint64_t data = 0;
    std::uint64_t holes = 0;
    while (const auto area = file->ReadNext()) {
        (area->GetBlock(0)->IsSparseBlock() ? holes : data) += area->GetSize();
    }
    EXPECT_EQ(data + holes, static_cast<std::uint64_t>(kSize));
    EXPECT_LE(data, 65536U);
}

TEST_F(SendClient, ManyItemsShareOneConnection) {
    tests::WriteFile(Place("one"), tests::Noise(5 * kBlock));
    tests::WriteFile(Place("two"), "2");
    std::filesystem::create_directory(Place("dir"));
    for (int round = 0; round < 3; ++round) {
        EXPECT_EQ(Content("one").size(), 5 * kBlock);
        EXPECT_EQ(Content("two"), "2");
        EXPECT_EQ(Content("dir"), "");
    }
    client_.reset();
    EXPECT_THAT(server_.WaitEnded(1), ElementsAre(""));
}

TEST_F(SendClient, ItemsThatAreReadAtTheSameTimeDoNotMix) {
    const std::string one = tests::Noise(100 * kBlock, 1);
    const std::string two = tests::Noise(100 * kBlock, 2);
    tests::WriteFile(Place("one"), one);
    tests::WriteFile(Place("two"), two);
    const auto first = Open("one");
    const auto second = Open("two");
    EXPECT_EQ(ReadAllOf(*second), two);
    EXPECT_EQ(ReadAllOf(*first), one);
    EXPECT_EQ(Content("two"), two);
}

TEST_F(SendClient, WhatIsNotThereFailsByNameAndTheNextItemComes) {
    tests::WriteFile(Place("file"), "abc");
    const auto failure = Failure("missing");
    EXPECT_EQ(failure.message, "Failed to read [" + Shown("missing") + "].");
    EXPECT_THAT(failure.what, HasSubstr("Failed to get attributes of"));
    EXPECT_THAT(failure.what, HasSubstr("No such file or directory"));
    EXPECT_EQ(Content("file"), "abc");
    client_.reset();
    EXPECT_THAT(server_.WaitEnded(2), ElementsAre("", ""));
}

TEST_F(SendClient, ReaderThatLeavesEarlyLeavesNothingBehind) {
    tests::WriteFile(Place("file"), tests::Noise(1000 * kBlock));
    const std::size_t descriptors = tests::OpenDescriptors();
    const std::size_t threads = tests::OwnThreads();
    {
        const auto file = Open("file");
        EXPECT_NE(file->ReadNext(), nullptr);
    }
    EXPECT_THAT(server_.WaitEnded(1), ElementsAre(HasSubstr("Failed to upload item.")));
    EXPECT_EQ(Content("file").size(), 1000 * kBlock) << "the client opens another connection";
    client_.reset();
    EXPECT_EQ(server_.WaitEnded(2).size(), 2U);
    // The server closes its end when its session has ended, and the thread after that.
    EXPECT_TRUE(tests::IsBackAtThreads(threads));
    EXPECT_LE(tests::OpenDescriptors(), descriptors);
}

TEST_F(SendClient, StopRequestEndsTheReading) {
    tests::WriteFile(Place("file"), tests::Noise(1000 * kBlock));
    const auto file = Open("file");
    EXPECT_NE(file->ReadNext(), nullptr);
    stop_.request_stop();
    const auto caught = tests::CatchError([&] { ReadAllOf(*file); });
    EXPECT_EQ(caught.message, "Failed to read [" + Shown("file") + "].");
    EXPECT_THAT(caught.what, HasSubstr("cancelled"));
    EXPECT_TRUE(tests::CatchError([&] { file->ReadNext(); }).thrown) << "a broken file does not end well later";
}

TEST_F(SendClient, ServerThatStopsInTheMiddleFailsTheReading) {
    tests::WriteFile(Place("file"), tests::Noise(1000 * kBlock));
    const auto file = Open("file");
    EXPECT_NE(file->ReadNext(), nullptr);
    server_.Stop();
    EXPECT_EQ(tests::CatchError([&] { ReadAllOf(*file); }).message, "Failed to read [" + Shown("file") + "].");
}

TEST_F(SendClient, FileThatShrinksWhileItIsReadFails) {
    tests::WriteFile(Place("file"), tests::Noise(1000 * kBlock));
    const auto file = Open("file");
    EXPECT_NE(file->ReadNext(), nullptr);
    ASSERT_EQ(::truncate(Place("file").c_str(), 5), 0);
    EXPECT_THAT(tests::CatchError([&] { ReadAllOf(*file); }).what, HasSubstr("changed while it was read"));
}

TEST_F(SendClient, FileThatChangesWithoutGrowingIsTold) {
    tests::WriteFile(Place("file"), tests::Noise(1000 * kBlock));
    const auto file = Open("file");
    EXPECT_NE(file->ReadNext(), nullptr);
    const timespec times[2] = {{1, 2}, {3, 4}};
    ASSERT_EQ(::utimensat(AT_FDCWD, Place("file").c_str(), times, 0), 0);
    ReadAllOf(*file);
    EXPECT_TRUE(file->HasChanged());
    const auto again = Open("file");
    ReadAllOf(*again);
    EXPECT_FALSE(again->HasChanged());
}

TEST(SendClientAlone, NobodyListens) {
    const tests::refusing_port_t port;
    const net::endpoint_t endpoint{"127.0.0.1", port.Port()};
    send_client_t client(endpoint, {});
    EXPECT_EQ(tests::CatchError([&] { client.Open({}); }).message,
              "Failed to open a session with [" + net::ToString(endpoint) + "].");
}

}  // namespace
}  // namespace agent::send
