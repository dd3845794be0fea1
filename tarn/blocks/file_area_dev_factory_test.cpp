#include <atomic>
#include <filesystem>
#include <fstream>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "corvel/corvel_ctx.h"
#include "mirrowen/exc/already_exists_exc.h"
#include "mirrowen/exc/runtime_exc.h"
#include "tarn/blocks/file_area_dev_factory.h"
#include "tarn/blocks/file_area_dev_token.h"
#include "tarn/blocks/rnd_fileblocks_writer.h"
#include "tarn/blocks/seq_fileblocks_writer.h"
#include "tests/support/blocks.h"
#include "tests/support/caught_error.h"
#include "tests/support/log_lines.h"
#include "tests/support/temp_dir.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::Not;

/// A token that the factory does not know.
class other_token_t final : public io::area::IAreaDevToken {
  public:
    std::string GetType() override { return "batch"; }
    std::string Path4Log() override { return "N/A"; }
    void Serial(io::binary_stream_tt& /*stream*/) const override {}
};

class FileAreaDevFactoryWriting : public testing::Test {
  protected:
    std::string Path(const std::string& name) const { return dir / name; }

    void Put(const std::string& name, const std::string& content) const {
        std::ofstream(Path(name), std::ios::binary) << content;
    }

    std::string Content(const std::string& name) const {
        std::ifstream in(Path(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }

    std::shared_ptr<io::area::area_write_dev_t> Create(const std::string& name, bool incremental, unsigned long* size,
                                                       bool overwrite) {
        return factory.CreateWriteDev(std::make_shared<tarn::CFileAreaDevToken>(Path(name)), incremental, size,
                                      overwrite);
    }

    tests::temp_dir_t dir;
    tarn::CFileAreaDevFactory factory;
};

TEST_F(FileAreaDevFactoryWriting, NewFileIsWrittenInOrder) {
    unsigned long size = 6;
    const auto device = Create("new", false, &size, false);
    EXPECT_NE(std::dynamic_pointer_cast<tarn::seq_fileblocks_writer_t>(device), nullptr);
    EXPECT_EQ(device->GetDisplayName(), Path("new"));
    EXPECT_EQ(Content("new").size(), 6U);
    device->Write(std::make_shared<io::area::CDataArea>(0, tests::DataBlock(0, "abc")));
    device->Write(std::make_shared<io::area::CDataArea>(1, tests::DataBlock(3, "def", 1)));
    device->Finish(nullptr);
    EXPECT_EQ(Content("new"), "abcdef");
}

TEST_F(FileAreaDevFactoryWriting, ExistingFileIsChangedInAnyOrder) {
    Put("old", "0123456789");
    unsigned long size = 8;
    const auto device = Create("old", true, &size, false);
    EXPECT_NE(std::dynamic_pointer_cast<tarn::rnd_fileblocks_writer_t>(device), nullptr);
    device->Write(std::make_shared<io::area::CDataArea>(0, tests::DataBlock(6, "GH")));
    device->Write(std::make_shared<io::area::CDataArea>(1, tests::DataBlock(0, "A", 1)));
    device->Finish(nullptr);
    EXPECT_EQ(Content("old"), "A12345GH");
}

TEST_F(FileAreaDevFactoryWriting, MissingSizeCountsAsZero) {
    Create("new", false, nullptr, false)->Finish(nullptr);
    EXPECT_EQ(Content("new"), "");
    Put("old", "0123456789");
    Create("old", true, nullptr, false)->Finish(nullptr);
    EXPECT_EQ(Content("old"), "");
}

TEST_F(FileAreaDevFactoryWriting, OverwriteReplacesTheFile) {
    Put("old", "0123456789");
    unsigned long size = 3;
    const auto device = Create("old", false, &size, true);
    device->Write(std::make_shared<io::area::CDataArea>(0, tests::DataBlock(0, "abc")));
    device->Finish(nullptr);
    EXPECT_EQ(Content("old"), "abc");
}

TEST_F(FileAreaDevFactoryWriting, ExistingFileIsToldUnwrappedAndStays) {
    Put("old", "0123456789");
    unsigned long size = 3;
    const tests::log_lines_t log;
    const auto caught = tests::CatchError([&] { Create("old", false, &size, false); });
    EXPECT_EQ(caught.type, "exc::CAlreadyExistsExc");
    EXPECT_EQ(Content("old"), "0123456789");
    EXPECT_THAT(log.Info(), ElementsAre("Opening file writer. Path: '" + Path("old") +
                                            "'. Size: '3'. Is incremental writer: 'false'.",
                                        "File already exists in CFileAreaDevFactory::CreateWriteDev()"));
}

TEST_F(FileAreaDevFactoryWriting, IncrementalNeverCreates) {
    unsigned long size = 3;
    const tests::log_lines_t log;
    const auto caught = tests::CatchError([&] { Create("missing", true, &size, true); });
    EXPECT_EQ(caught.type, "exc::CRuntimeExc");
    EXPECT_EQ(caught.message, "Failed to create file writer. File path: '" + Path("missing") + "'.");
    EXPECT_FALSE(caught.causes.empty());
    EXPECT_FALSE(std::filesystem::exists(Path("missing")));
    EXPECT_THAT(log.Info(), Contains("Opening file writer. Path: '" + Path("missing") +
                                     "'. Size: '3'. Is incremental writer: 'true'."));
    EXPECT_THAT(log.Info(), Not(Contains("File already exists in CFileAreaDevFactory::CreateWriteDev()")));
}

TEST_F(FileAreaDevFactoryWriting, RefusalByTheDispatcherIsWrapped) {
    CCorvelCtx::Inst()->SetRelativePathMapper(
        [](const std::string&) -> std::string { throw exc::CRuntimeExc("not below the root"); });
    const auto caught = tests::CatchError([&] { Create("new", false, nullptr, false); });
    CCorvelCtx::Inst()->SetRelativePathMapper({});
    EXPECT_EQ(caught.message, "Failed to create file writer. File path: '" + Path("new") + "'.");
    EXPECT_THAT(caught.causes, Contains("not below the root"));
    EXPECT_FALSE(std::filesystem::exists(Path("new")));
}

TEST_F(FileAreaDevFactoryWriting, TokenOfAnotherKindIsRefused) {
    const tests::log_lines_t log;
    const auto caught =
        tests::CatchError([&] { factory.CreateWriteDev(std::make_shared<other_token_t>(), false, nullptr, true); });
    EXPECT_EQ(caught.type, "exc::CRuntimeExc");
    EXPECT_EQ(caught.what, "Invalid type of the specified token: 'batch'.");
    EXPECT_THAT(log.Info(), ElementsAre());
}

TEST_F(FileAreaDevFactoryWriting, MissingTokenIsRefused) {
    const auto caught = tests::CatchError([&] { factory.CreateWriteDev(nullptr, false, nullptr, true); });
    EXPECT_EQ(caught.type, "exc::CRuntimeExc");
    EXPECT_EQ(caught.what, "Invalid type of the specified token: ''.");
}

TEST_F(FileAreaDevFactoryWriting, OneFactoryAndOneTokenServeManyThreads) {
    constexpr int kThreads = 4;
    constexpr int kRounds = 50;
    Put("shared", "0123456789");
    const auto token = std::make_shared<tarn::CFileAreaDevToken>(Path("shared"));
    std::atomic<int> good = 0;
    std::vector<std::jthread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([&, thread] {
            const std::string own = std::to_string(thread);
            for (int round = 0; round < kRounds; ++round) {
                unsigned long size = 10;
                factory.CreateWriteDev(token, true, &size, false)->Finish(nullptr);
                unsigned long ownSize = own.size();
                const auto device = Create(own, false, &ownSize, true);
                device->Write(std::make_shared<io::area::CDataArea>(0, tests::DataBlock(0, own)));
                device->Finish(nullptr);
                good += Content(own) == own && token->GetPath() == Path("shared") ? 1 : 0;
            }
        });
    }
    threads.clear();
    EXPECT_EQ(good, kThreads * kRounds);
    EXPECT_EQ(Content("shared"), "0123456789");
}

}  // namespace
