#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <future>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "corvel/corvel_ctx.h"
#include "mirrowen/exc/already_exists_exc.h"
#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/posix/syscalls.h"
#include "tarn/blocks/file_area_dev_factory.h"
#include "tarn/blocks/seq_fileblocks_reader.h"
#include "tarn/fs_operations.h"
#include "tarn/upload/file_upload_cli.h"
#include "tarn/upload/file_upload_srv.h"
#include "tests/support/caught_error.h"
#include "tests/support/duplex_dev.h"
#include "tests/support/log_lines.h"
#include "tests/support/recording_wstream.h"
#include "tests/support/scripted_dev.h"
#include "tests/support/scripted_rstream.h"
#include "tests/support/tee_dev.h"
#include "tests/support/temp_dir.h"
#include "tests/support/upload_kit.h"

/// Client and server against each other over a connection in memory.
namespace {

using brannock::transmission::net::netmngr_cfg_t;
using io::block::EBufTransformType;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;
using tests::message_t;

constexpr std::uint32_t kVersion = brannock::transmission::kTransportVersion;
constexpr std::uint64_t kBlock = 4096;

/// Counts the bytes that a transfer reports.
class counting_progress_t final : public progress::progress_base_t {
  public:
    void OnProgress(std::uint64_t bytes) override { done += bytes; }
    std::atomic<std::uint64_t> done{0};
};

std::string Pattern(std::size_t size) {
    std::string bytes(size, '\0');
    std::uint32_t state = 12345;
    for (char& byte : bytes) {
        state = state * 1664525 + 1013904223;
        byte = static_cast<char>(state >> 24);
    }
    return bytes;
}

class UploadLoopback : public testing::Test {
  protected:
    void SetUp() override {
        CCorvelCtx::Inst()->RegisterAreaDevFactory(std::make_shared<tarn::CFileAreaDevFactory>());
        CCorvelCtx::Inst()->RegisterAreaDevFactory(factory);
    }

    /// Runs `server` on a thread of its own while `use` drives a client, which then ends the session. Both ends close
    /// their side when they are done, so neither waits for one that has failed.
    template <class MakeServer, class Use>
    void Run(const MakeServer& makeServer, const Use& use) {
        const tests::duplex_dev_t connection;
        clientEnd = std::make_shared<tests::tee_dev_t>(connection.Left());
        auto serving = std::async(std::launch::async, [&] {
            serverError = tests::CatchError([&] { makeServer(connection.Right())->HandleCmds(serverProgress); });
            connection.Right()->Close();
        });
        const auto client = tarn::file_upload_cli_t::Create(clientEnd, kVersion, compat::SCompatibilityInfo());
        clientError = tests::CatchError([&] { use(*client); });
        tests::CatchError([&] {
            client->WriteU32(2);
            client->Flush();
        });
        serving.get();
        connection.Left()->Close();
    }

    template <class Use>
    void Run(const Use& use) {
        Run(
            [&](std::shared_ptr<io::io_dev_t> channel) {
                return std::make_unique<tarn::file_upload_srv_t>(std::move(channel), console, false, kVersion,
                                                                 compat::SCompatibilityInfo());
            },
            use);
    }

    template <class Use>
    void RunIntoStream(const std::shared_ptr<tarn::file_wstream_t>& stream, const Use& use) {
        Run(
            [&](std::shared_ptr<io::io_dev_t> channel) {
                return std::make_unique<tarn::file_upload_srv_t>(std::move(channel), console, false, kVersion, stream,
                                                                 compat::SCompatibilityInfo());
            },
            use);
    }

    void ExpectNoErrors() const {
        EXPECT_FALSE(clientError.thrown) << clientError.what;
        EXPECT_FALSE(serverError.thrown) << serverError.what;
    }

    /// The default proposal but for the number of streams, which no version allows.
    static std::string UnrunnableProposal() {
        std::string bytes = tests::BytesOf(netmngr_cfg_t());
        bytes.at(8) = 99;
        return bytes;
    }

    static std::shared_ptr<tests::probe_source_t> Source(const std::string& content) {
        return std::make_shared<tests::probe_source_t>(content, kBlock);
    }

    void UploadProbe(tarn::file_upload_cli_t& client, const std::string& content,
                     EBufTransformType transform = EBufTransformType::eNone) {
        client.UploadItem(kBlock, Source(content), token, content.size(), transform, options, 0, nullptr);
    }

    tests::temp_dir_t dir;
    tests::log_lines_t log;
    tests::recording_console_t console;
    std::shared_ptr<tests::probe_factory_t> factory = std::make_shared<tests::probe_factory_t>();
    std::shared_ptr<tests::probe_token_t> token = std::make_shared<tests::probe_token_t>("/a");
    std::shared_ptr<tests::tee_dev_t> clientEnd;
    std::shared_ptr<counting_progress_t> serverProgress = std::make_shared<counting_progress_t>();
    tarn::inc_upload_options_t options;
    tests::caught_error_t clientError;
    tests::caught_error_t serverError;
};

TEST_F(UploadLoopback, FilesOfManySizesArriveWhole) {
    const std::vector<std::size_t> sizes{0, 1, 4095, 4096, 4097, 100000, 1000003};
    Run([&](tarn::file_upload_cli_t& client) {
        for (const std::size_t size : sizes) {
            const std::string content = Pattern(size);
            const auto reader = std::make_shared<tarn::seq_fileblocks_reader_t>(
                std::make_shared<tests::scripted_rstream_t>(content), kBlock, size);
            client.UploadFile(kBlock, reader, dir / std::to_string(size), size, EBufTransformType::eNone, options, 0,
                              nullptr);
        }
    });
    ExpectNoErrors();
    for (const std::size_t size : sizes) {
        EXPECT_EQ(tests::ReadFile(dir / std::to_string(size)), Pattern(size)) << size;
    }
    EXPECT_THAT(log.Trace(), Contains("File was received."));
    EXPECT_THAT(log.Trace(), Contains("File uploaded."));
    EXPECT_THAT(log.Trace(), Contains("File upload commands were processed."));
}

TEST_F(UploadLoopback, PackedBlocksArriveUnpacked) {
    for (const auto transform : {EBufTransformType::eLz4, EBufTransformType::eZstd}) {
        factory->device = std::make_shared<tests::probe_device_t>("probe device");
        const std::string content(50000, 'x');
        Run([&](tarn::file_upload_cli_t& client) { UploadProbe(client, content, transform); });
        ExpectNoErrors();
        EXPECT_EQ(factory->device->content, content);
        EXPECT_EQ(factory->device->finished, 1);
        EXPECT_LT(clientEnd->BytesWritten().size(), content.size() / 2);
    }
}

TEST_F(UploadLoopback, BulkPhaseKeepsItsOrder) {
    Run([&](tarn::file_upload_cli_t& client) { UploadProbe(client, "hello"); });
    ExpectNoErrors();
    const std::string proposal = tests::BytesOf(netmngr_cfg_t::GetRecommendedCfg(kVersion));
    EXPECT_THAT(
        clientEnd->BytesWritten(),
        StartsWith(message_t().U32(5).Text("probe").Text("/a").U64(5).U32(0).U32(0).U32(kBlock).Raw(proposal).Bytes()));
    EXPECT_THAT(clientEnd->BytesWritten(), testing::EndsWith(message_t().U32(2).Bytes()));
    EXPECT_THAT(clientEnd->BytesRead(), StartsWith(message_t().Ok().U32(0).Raw(proposal).Bytes()));
    EXPECT_THAT(clientEnd->BytesRead(), testing::EndsWith(message_t().Ok().Bytes()));
    EXPECT_THAT(log.Info(), Contains(netmngr_cfg_t::GetRecommendedCfg(kVersion).IsMultiStreamingEnabled()
                                         ? "Multi-threaded upload is enabled."
                                         : "Multi-threaded upload is disabled."));
    EXPECT_EQ(factory->device->finished, 1);
    EXPECT_EQ(serverProgress->done, 5U);
}

TEST_F(UploadLoopback, BothEndsReportTheirProgress) {
    const auto clientProgress = std::make_shared<counting_progress_t>();
    const std::string content = Pattern(10000);
    Run([&](tarn::file_upload_cli_t& client) {
        client.UploadItem(kBlock, Source(content), token, content.size(), EBufTransformType::eNone, options, 0,
                          clientProgress);
    });
    ExpectNoErrors();
    EXPECT_EQ(clientProgress->done, 10000U);
    EXPECT_EQ(serverProgress->done, 10000U);
}

TEST_F(UploadLoopback, KeysetsThatTheServerAsksForEndTheUpload) {
    Run(
        [&](std::shared_ptr<io::io_dev_t> channel) {
            auto server = std::make_unique<tarn::file_upload_srv_t>(std::move(channel), console, false, kVersion,
                                                                    compat::SCompatibilityInfo());
            server->EnableUploadDecryption();
            return server;
        },
        [&](tarn::file_upload_cli_t& client) { UploadProbe(client, "hello"); });
    EXPECT_THAT(clientError.causes, ElementsAre("Keysets are not supported."));
    EXPECT_EQ(serverError.causes.back(), "Keysets are not supported.");
    EXPECT_EQ(factory->device->content, "");
}

TEST_F(UploadLoopback, ExistingFileStaysAndBothEndsAreTold) {
    tests::WriteFile(dir / "a", "old");
    Run([&](tarn::file_upload_cli_t& client) {
        client.UploadFile(kBlock, Source("new"), dir / "a", 3, EBufTransformType::eNone, options, 0, nullptr);
    });
    EXPECT_EQ(clientError.type, "exc::CAlreadyExistsExc");
    EXPECT_EQ(serverError.type, "exc::CAlreadyExistsExc");
    EXPECT_EQ(clientError.message, serverError.what);
    EXPECT_EQ(tests::ReadFile(dir / "a"), "old");
}

TEST_F(UploadLoopback, ExistingFileIsReplacedWithOverwrite) {
    tests::WriteFile(dir / "a", "old and longer");
    Run([&](tarn::file_upload_cli_t& client) {
        client.UploadFile(kBlock, Source("new"), dir / "a", 3, EBufTransformType::eNone, options, 1, nullptr);
    });
    ExpectNoErrors();
    EXPECT_EQ(tests::ReadFile(dir / "a"), "new");
}

TEST_F(UploadLoopback, IncrementalItemChangesOnlyItsBlocks) {
    tests::WriteFile(dir / "a", std::string(10000, 'o'));
    options.incremental = true;
    const auto source = Source("new");
    source->StartAt(5000);
    Run([&](tarn::file_upload_cli_t& client) {
        client.UploadFile(kBlock, source, dir / "a", 10000, EBufTransformType::eNone, options, 0, nullptr);
    });
    ExpectNoErrors();
    EXPECT_EQ(tests::ReadFile(dir / "a"), std::string(5000, 'o') + "new" + std::string(4997, 'o'));
}

TEST_F(UploadLoopback, PermissionsAreAppliedAtTheEnd) {
    tests::WriteFile(dir / "model", "x");
    ASSERT_EQ(::chmod((dir / "model").c_str(), 0640), 0);
    auto info = util::CFileInfo::getInfoForFile(dir / "model", false);
    info.modificationTime = {1000000000, 5};
    Run([&](tarn::file_upload_cli_t& client) {
        client.UploadFileWithPermissions(kBlock, Source("hello"), dir / "a", 5, info, EBufTransformType::eNone, options,
                                         0, nullptr);
    });
    ExpectNoErrors();
    struct stat attributes {};
    ASSERT_EQ(::stat((dir / "a").c_str(), &attributes), 0);
    EXPECT_EQ(attributes.st_mode & 07777U, 0640U);
    EXPECT_EQ(attributes.st_mtim.tv_sec, 1000000000);
    EXPECT_EQ(tests::ReadFile(dir / "a"), "hello");
    const auto name = [](const util::SPrincipal& principal) {
        return principal.name.empty() ? std::to_string(principal.id) : principal.name;
    };
    EXPECT_THAT(log.Info(), Contains("Changing permissions for the file. Owner: [" + name(info.owner) + "]. Group: [" +
                                     name(info.group) + "]. Permissions: [0640]."));
}

// Notes when the content is made durable and when times are set, and lets both happen.
struct end_of_file_calls_t {
    end_of_file_calls_t() : table(posix::real_syscalls()), inForce(table) {
        flushed = timesAfterFlush = timesSet = 0;
        table.fsync = [](int fd) {
            ++flushed;
            return posix::real_syscalls().fsync(fd);
        };
        table.utimensat = [](int dir, const char* path, const struct timespec times[2], int flags) {
            NoteTimes();
            return posix::real_syscalls().utimensat(dir, path, times, flags);
        };
        table.futimens = [](int fd, const struct timespec times[2]) {
            NoteTimes();
            return posix::real_syscalls().futimens(fd, times);
        };
    }
    static void NoteTimes() {
        ++timesSet;
        timesAfterFlush += flushed == 1;
    }

    posix::syscalls_t table;
    posix::scoped_syscalls_t inForce;
    static inline std::atomic<int> flushed, timesAfterFlush, timesSet;
};

TEST_F(UploadLoopback, PermissionsAreAppliedOnceTheContentIsDurable) {
    util::CFileInfo info;
    info.type = util::EFileType::eRegular;
    info.mode = 0640;
    const end_of_file_calls_t calls;
    Run([&](tarn::file_upload_cli_t& client) {
        client.UploadFileWithPermissions(kBlock, Source("hello"), dir / "a", 5, info, EBufTransformType::eNone, options,
                                         0, nullptr);
    });
    ExpectNoErrors();
    EXPECT_EQ(calls.flushed, 1);
    EXPECT_EQ(calls.timesSet, 1);
    EXPECT_EQ(calls.timesAfterFlush, 1);
}

TEST_F(UploadLoopback, PermissionsThatCannotBeAppliedComeInPlaceOfTheLastAnswer) {
    util::CFileInfo info;
    info.type = util::EFileType::eRegular;
    Run([&](tarn::file_upload_cli_t& client) {
        client.UploadFileWithPermissions(kBlock, Source("hello"), "MemFs://loopback", 5, info, EBufTransformType::eNone,
                                         options, 0, nullptr);
    });
    const std::string reason = "MEMFS: operation does not supported. Operation: [SetFileMetadata].";
    EXPECT_THAT(clientError.what, HasSubstr("Unable to receive file."));
    EXPECT_THAT(serverError.causes, Contains(reason));
    const auto memory = tarn::fs_operations_t::RecognizeFsPath("MemFs://loopback", 0);
    EXPECT_EQ(memory->OpenFile4Read("MemFs://loopback")->GetFileSize(), 5U) << "the content was there before";
    memory->DeleteFile("MemFs://loopback");
}

TEST_F(UploadLoopback, OwnersWithoutNamesAreLoggedAsNumbers) {
    util::CFileInfo info;
    info.type = util::EFileType::eRegular;
    info.owner.id = ::getuid();
    info.group.id = ::getgid();
    info.mode = 04755;
    Run([&](tarn::file_upload_cli_t& client) {
        client.UploadFileWithPermissions(kBlock, Source("hello"), dir / "a", 5, info, EBufTransformType::eNone, options,
                                         0, nullptr);
    });
    EXPECT_THAT(log.Info(), Contains("Changing permissions for the file. Owner: [" + std::to_string(::getuid()) +
                                     "]. Group: [" + std::to_string(::getgid()) + "]. Permissions: [4755]."));
}

TEST_F(UploadLoopback, PermissionsOfATokenWithoutAPathAreLeftOut) {
    util::CFileInfo info;
    info.type = util::EFileType::eRegular;
    Run([&](tarn::file_upload_cli_t& client) {
        client.UploadItemWithPermissions(kBlock, Source("hello"), token, 5, info, EBufTransformType::eNone, options, 0,
                                         nullptr);
    });
    ExpectNoErrors();
    EXPECT_THAT(log.Info(), Not(Contains(StartsWith("Changing permissions"))));
}

TEST_F(UploadLoopback, HvirItemShowsItsProgressOnTheConsole) {
    Run([&](tarn::file_upload_cli_t& client) {
        client.UploadItemHVIR(kBlock, Source("hello"), token, 5, io::block::SBufCompressionSpec::GetPreserveSpec(),
                              options, nullptr);
    });
    ExpectNoErrors();
    EXPECT_THAT(factory->calls, Contains("CreateWriteDevForHVIR </a> 5"));
    EXPECT_EQ(factory->device->content, "hello");
    EXPECT_THAT(console.Text(), testing::EndsWith("100%\n"));
    EXPECT_EQ(serverProgress->done, 0U);
}

TEST_F(UploadLoopback, ItemsOfASessionGoIntoOnePresetStreamInOrder) {
    const auto stream = std::make_shared<tests::recording_wstream_t>();
    RunIntoStream(stream, [&](tarn::file_upload_cli_t& client) {
        UploadProbe(client, "hello ");
        const auto second = Source("world");
        second->StartAt(6);
        client.UploadItem(kBlock, second, token, 5, EBufTransformType::eNone, options, 0, nullptr);
    });
    ExpectNoErrors();
    EXPECT_EQ(stream->Content(), "hello world");
    EXPECT_THAT(stream->Calls(),
                ElementsAre("WriteExc 6", "Flush", "Close with port", "WriteExc 5", "Flush", "Close with port"));
}

TEST_F(UploadLoopback, DigestsOfTheBlocksAreRegistered) {
    options.digests = std::make_shared<digest::digests_t>();
    const std::string content = Pattern(kBlock + 10);
    Run([&](tarn::file_upload_cli_t& client) { UploadProbe(client, content); });
    ExpectNoErrors();
    const auto digestOf = [](const std::string& bytes) {
        return digest::ComputeBlockDigest(std::as_bytes(std::span(bytes)));
    };
    EXPECT_THAT(options.digests->GetAll(), ElementsAre(testing::Pair(0, digestOf(content.substr(0, kBlock))),
                                                       testing::Pair(1, digestOf(content.substr(kBlock)))));
    EXPECT_THAT(log.Info(), Contains("Digest hook for filter signature will be enabled."));
}

TEST_F(UploadLoopback, FailureOfTheTargetReachesTheClient) {
    factory->device->failure = [] { throw exc::CRuntimeExc("the target broke"); };
    Run([&](tarn::file_upload_cli_t& client) { UploadProbe(client, Pattern(100000)); });
    EXPECT_EQ(clientError.message,
              "Failed to upload item. Datasource: [probe source]. Target item type: [probe]. Target path: [</a>].");
    EXPECT_THAT(clientError.what, HasSubstr("the target broke"));
    EXPECT_EQ(serverError.message, "Unable to process file upload commands.");
    EXPECT_EQ(serverError.causes.front(), "Unable to receive file.");
    EXPECT_THAT(serverError.what, HasSubstr("the target broke"));
    EXPECT_EQ(factory->device->finished, 0);
}

TEST_F(UploadLoopback, TargetThatTurnsOutToExistAtTheEndIsKeptApart) {
    factory->device->finishFailure = [] { throw exc::CAlreadyExistsExc("somebody was faster"); };
    Run([&](tarn::file_upload_cli_t& client) { UploadProbe(client, "hello"); });
    EXPECT_EQ(clientError.type, "exc::CAlreadyExistsExc");
    EXPECT_EQ(serverError.type, "exc::CAlreadyExistsExc");
    EXPECT_EQ(serverError.what, "somebody was faster");
}

TEST_F(UploadLoopback, EverythingInOneSession) {
    std::set<std::string> existing;
    Run([&](tarn::file_upload_cli_t& client) {
        UploadProbe(client, "hello");
        client.UploadSymLink(dir / "l", "a");
        client.UploadFile(kBlock, Source("x"), dir / "a", 1, EBufTransformType::eNone, options, 0, nullptr);
        client.CheckWhatFilesExist({dir / "a", dir / "b", dir / "l"}, existing);
        UploadProbe(client, "world");
    });
    ExpectNoErrors();
    EXPECT_THAT(existing, ElementsAre(dir / "a", dir / "l"));
    EXPECT_EQ(factory->device->content, "world");
    EXPECT_EQ(tests::ReadFile(dir / "l"), "x");
}

TEST_F(UploadLoopback, RecordedSessionCutAnywhereEndsTheServer) {
    Run([&](tarn::file_upload_cli_t& client) { UploadProbe(client, "hello"); });
    ExpectNoErrors();
    const std::string whole = clientEnd->BytesWritten();
    for (std::size_t length = 0; length < whole.size(); ++length) {
        const auto channel = std::make_shared<tests::scripted_dev_t>(whole.substr(0, length));
        tarn::file_upload_srv_t server(channel, console, false, kVersion, compat::SCompatibilityInfo());
        const auto caught = tests::CatchError([&] { server.HandleCmds(nullptr); });
        EXPECT_EQ(caught.message, "Unable to process file upload commands.") << length << " of " << whole.size();
    }
    // Whole, it is a good session again.
    const auto channel = std::make_shared<tests::scripted_dev_t>(whole);
    tarn::file_upload_srv_t server(channel, console, false, kVersion, compat::SCompatibilityInfo());
    const auto caught = tests::CatchError([&] { server.HandleCmds(nullptr); });
    EXPECT_FALSE(caught.thrown) << caught.what;
}

TEST_F(UploadLoopback, OlderCommandsAreServedLikeItems) {
    // The content of an item is the same whatever command opens it, so a recorded one serves commands 1 and 4.
    const std::string content = Pattern(5000);
    Run([&](tarn::file_upload_cli_t& client) { UploadProbe(client, content); });
    ExpectNoErrors();
    const std::string proposal = tests::BytesOf(netmngr_cfg_t::GetRecommendedCfg(kVersion));
    const std::string bytes = clientEnd->BytesWritten();
    const std::string bulk = bytes.substr(bytes.find(proposal));

    util::CFileInfo info;
    info.type = util::EFileType::eRegular;
    info.owner.id = ::getuid();
    info.group.id = ::getgid();
    info.mode = 0600;
    info.modificationTime = {1000000000, 0};
    const std::string infoBytes = tests::BytesWritten([&](io::binary_stream_tt& stream) { info.Serialize(stream); });
    tests::WriteFile(dir / "a", "replaced");
    const auto serve = [&](const message_t& message) {
        const auto channel = std::make_shared<tests::scripted_dev_t>(message.Bytes() + bulk);
        tarn::file_upload_srv_t server(channel, console, false, kVersion, compat::SCompatibilityInfo());
        const auto caught = tests::CatchError([&] { server.HandleCmds(nullptr); });
        EXPECT_FALSE(caught.thrown) << caught.what;
        EXPECT_THAT(channel->output, testing::EndsWith(message_t().Ok().Bytes()));
    };
    serve(message_t().U32(1).Text(dir / "a").U64(5000).U32(0).U32(kBlock));
    EXPECT_EQ(tests::ReadFile(dir / "a"), content);
    EXPECT_THAT(log.Info(), Not(Contains(StartsWith("Changing permissions"))));

    serve(message_t().U32(4).Text(dir / "b").U64(5000).U32(0).U32(kBlock).Raw(infoBytes));
    EXPECT_EQ(tests::ReadFile(dir / "b"), content);
    EXPECT_THAT(log.Info(), Contains("Changing permissions for the file. Owner: [" + std::to_string(::getuid()) +
                                     "]. Group: [" + std::to_string(::getgid()) + "]. Permissions: [0600]."));
    EXPECT_EQ(util::CFileInfo::getInfoForFile(dir / "b", false).modificationTime.seconds, 1000000000);
}

TEST_F(UploadLoopback, ProposalThatCannotBeRunIsAnsweredWithOneChannel) {
    Run([&](tarn::file_upload_cli_t& client) { UploadProbe(client, "hello"); });
    ExpectNoErrors();
    const std::string proposal = tests::BytesOf(netmngr_cfg_t::GetRecommendedCfg(kVersion));
    std::string bytes = clientEnd->BytesWritten();
    bytes.replace(bytes.find(proposal), proposal.size(), UnrunnableProposal());
    const auto channel = std::make_shared<tests::scripted_dev_t>(bytes);
    tarn::file_upload_srv_t server(channel, console, false, kVersion, compat::SCompatibilityInfo());
    log.Clear();
    const auto caught = tests::CatchError([&] { server.HandleCmds(nullptr); });
    EXPECT_FALSE(caught.thrown) << caught.what;
    EXPECT_THAT(log.Warn(), ElementsAre("Proposed network utilization scheme is not supported by client. One channel "
                                        "will be used for download."));
    EXPECT_THAT(channel->output, StartsWith(message_t().Ok().U32(0).Raw(tests::BytesOf(netmngr_cfg_t())).Bytes()));
}

}  // namespace
