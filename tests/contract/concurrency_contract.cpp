// Threads: the operations object is shared, streams are not; nothing here starts a thread of its own.
#include <atomic>
#include <filesystem>
#include <iterator>
#include <thread>
#include <vector>

#include "tests/contract/backend_contract.h"

namespace contract {
namespace {

std::ptrdiff_t ThreadsOfThisProcess() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
}

}  // namespace

TEST_P(BackendContract, OneObjectServesManyThreads) {
    constexpr int kThreads = 4;
    constexpr int kRounds = 50;
    std::atomic<int> failures = 0;
    std::vector<std::jthread> threads;
    for (int id = 0; id != kThreads; ++id) {
        threads.emplace_back([&, id] {
            const std::string name = "file" + std::to_string(id);
            for (int round = 0; round != kRounds; ++round) {
                const std::string content = name + " round " + std::to_string(round);
                const auto stream = Fs().CreateNewFile(Path(name), content.size(), true);
                stream->WriteExc(content.data(), content.size());
                stream->WriteZeroes(10);
                stream->Close(nullptr);
                failures += Get(name) != content + std::string(10, '\0');
                failures += !Fs().IsObjectExist(Path(name));
                Fs().DeleteFile(Path(name));
                failures += Fs().IsObjectExist(Path(name));
            }
        });
    }
    threads.clear();
    EXPECT_EQ(failures, 0);
}

TEST_P(BackendContract, ReadersOfOneFileShareIt) {
    const std::string content(100000, 'x');
    Put("file", content);
    std::atomic<int> failures = 0;
    std::vector<std::jthread> threads;
    for (int id = 0; id != 4; ++id) {
        threads.emplace_back([&] {
            for (int round = 0; round != 20; ++round) {
                failures += Get("file") != content;
            }
        });
    }
    threads.clear();
    EXPECT_EQ(failures, 0);
}

TEST_P(BackendContract, NoOperationStartsAThread) {
    const std::ptrdiff_t before = ThreadsOfThisProcess();
    const auto writer = Create("file", 100);
    WriteText(*writer, "content");
    writer->WriteZeroes(1000);
    writer->Flush();
    EXPECT_EQ(ThreadsOfThisProcess(), before);
    writer->Close(nullptr);
    const auto reader = Open("file");
    EXPECT_EQ(ReadText(*reader, 7), "content");
    EXPECT_EQ(ThreadsOfThisProcess(), before);
    reader->FinishRead();
    EXPECT_TRUE(Fs().IsObjectExist(Path("file")));
    Fs().GetFileMetadata(Path("file"), tarn::EFileInfoType::eFileInfoBasic);
    Fs().DeleteFile(Path("file"));
    EXPECT_EQ(ThreadsOfThisProcess(), before);
}

}  // namespace contract
