#include "tests/contract/writer_contract.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <random>

#include "mirrowen/synch/completion_port.h"
#include "mirrowen/util/file_info.h"

namespace contract {

void WriterContract::Put(const std::string& name, const std::string& content) {
    const auto stream = Create(name);
    EXPECT_EQ(stream->WriteExc(content.data(), content.size()), content.size());
    stream->Flush();
    stream->Close(nullptr);
}

TEST_P(WriterContract, FilesArrive) {
    Put("full", "content");
    Put("empty", "");
    Create("never written");
    Settle();
    EXPECT_EQ(Get("full"), "content");
    EXPECT_EQ(Get("empty"), "");
    EXPECT_EQ(Get("never written"), "");
}

TEST_P(WriterContract, WritesFollowOneAnother) {
    auto stream = Create("file");
    stream->WriteExc("0123", 4);
    stream->WriteExc("", 0);
    stream->WriteExc("456789", 6);
    stream->Close(nullptr);
    stream.reset();
    Settle();
    EXPECT_EQ(Get("file"), "0123456789");
}

TEST_P(WriterContract, LargeWritesArriveWhole) {
    std::string content(33U << 20, '\0');
    for (std::size_t i = 0; i != content.size(); ++i) {
        content[i] = static_cast<char>(i % 251 + i / 4096);
    }
    Put("file", content);
    Put("neighbour", "small");
    Settle();
    EXPECT_TRUE(Get("file") == content);
    EXPECT_EQ(Get("neighbour"), "small");
}

TEST_P(WriterContract, SeekingMovesTheWriterAndLeavesZeroes) {
    auto stream = Create("file");
    stream->WriteExc("0123456789", 10);
    stream->SeekTo(2);
    stream->WriteExc("AB", 2);
    stream->SeekTo(12);
    stream->WriteExc("CD", 2);
    stream.reset();
    Settle();
    EXPECT_EQ(Get("file"), std::string("01AB456789\0\0CD", 14));
}

TEST_P(WriterContract, AFileSurvivesAStreamThatIsDroppedUnclosed) {
    Create("file")->WriteExc("0123", 4);
    Settle();
    EXPECT_EQ(Get("file"), "0123");
}

TEST_P(WriterContract, ClosingLeavesThePortAlone) {
    const auto port = std::make_shared<synch::completion_port_t>();
    auto stream = Create("file");
    EXPECT_EQ(stream->GetPath(), StreamPath("file"));
    stream->WriteExc("0123", 4);
    stream->Close(port);
    stream->Close(port);
    EXPECT_EQ(port.use_count(), 1) << "the stream keeps the port";
    EXPECT_NO_THROW(port->CheckForErrorsExc());
    stream.reset();
    Settle();
    EXPECT_EQ(Get("file"), "0123");
}

TEST_P(WriterContract, CreatingWithOverwriteStartsAnew) {
    Put("file", "old and long");
    Put("file", "new");
    Settle();
    EXPECT_EQ(Get("file"), "new");
    Put("file", "newer still");
    Settle();
    EXPECT_EQ(Get("file"), "newer still");
}

TEST_P(WriterContract, DirectoriesHoldFilesAndMayBeThereAlready) {
    std::filesystem::create_directory(Real("old"));
    tests::WriteFile(Real("old/file"), "kept");
    Fs().CreateDir(Path("old"));
    Fs().CreateDir(Path("dir"));
    Fs().CreateDir(Path("dir"));
    Fs().CreateDir(Path("dir/inner") + "/");
    Put("dir/inner/file", "content");
    Settle();
    EXPECT_EQ(Get("dir/inner/file"), "content");
    EXPECT_EQ(Get("old/file"), "kept");
}

TEST_P(WriterContract, AttributesAreApplied) {
    Put("file", "content");
    util::CFileInfo info;
    info.type = util::EFileType::eRegular;
    info.owner.id = ::getuid();
    info.group.id = ::getgid();
    info.mode = 0640;
    info.modificationTime = {1000000000, 123456789};
    Fs().SetFileMetadata(info, Path("file"));
    Settle();
    struct stat there = {};
    ASSERT_EQ(::stat(Real("file").c_str(), &there), 0);
    EXPECT_EQ(there.st_mode & 07777U, 0640U);
    EXPECT_EQ(there.st_mtim.tv_sec, 1000000000);
    EXPECT_EQ(there.st_mtim.tv_nsec, 123456789);
    EXPECT_EQ(Get("file"), "content");
}

TEST_P(WriterContract, NamesAreBytesAndMayLookLikePrefixes) {
    const std::string names[] = {"\xFF\xFE not text", "new\nline", " ", std::string(255, 'n')};
    for (const std::string& name : names) {
        Put(name, name);
    }
    Fs().CreateDir(Path("a:"));
    Put("a://b", "below");
    Settle();
    EXPECT_EQ(Get("a:/b"), "below");
    for (const std::string& name : names) {
        EXPECT_EQ(Get(name), name);
    }
}

// The same operations on several files at once and on strings in memory end in the same bytes.
TEST_P(WriterContract, AnyMixOfFilesBytesAndSeeksMatchesTheModel) {
    for (std::uint32_t seed = 1; seed <= 10; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::mt19937 random(seed);
        const auto pick = [&](std::uint32_t below) { return static_cast<std::size_t>(random() % below); };
        struct file_t {
            std::shared_ptr<tarn::file_wstream_t> stream;
            std::string model;
            std::size_t at = 0;
        };
        std::map<std::string, file_t> files;
        for (int step = 0; step != 200; ++step) {
            const std::string name = std::string("file") + static_cast<char>('0' + pick(4));
            file_t& file = files[name];
            if (file.stream == nullptr || pick(20) == 0) {
                file = {Create(name), "", 0};
            }
            if (pick(3) == 0) {
                file.at = pick(2500);
                file.stream->SeekTo(file.at);
            }
            const std::string bytes(1 + pick(200), static_cast<char>('a' + step % 26));
            file.model.resize(std::max(file.model.size(), file.at + bytes.size()));
            file.model.replace(file.at, bytes.size(), bytes);
            file.at += bytes.size();
            file.stream->WriteExc(bytes.data(), bytes.size());
        }
        for (auto& [name, file] : files) {
            file.stream.reset();
        }
        Settle();
        for (const auto& [name, file] : files) {
            ASSERT_EQ(Get(name), file.model) << name;
        }
    }
}

}  // namespace contract
