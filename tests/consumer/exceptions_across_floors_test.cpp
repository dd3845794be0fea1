// Links the shared libraries as users do: each floor throws from its own library, and libTarnwick, or we, catch it by
// type.
#include <dlfcn.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "brannock/transmission/areas_send_channel.h"
#include "brannock/transmission/net/netmngr_cfg.h"
#include "brannock/transmission/transmission_cfg.h"
#include "corvel/corvel_ctx.h"
#include "mirrowen/exc/already_exists_exc.h"
#include "mirrowen/exc/not_impl_exc.h"
#include "mirrowen/exc/regen.h"
#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/posix/errno_exc.h"
#include "mirrowen/posix/posix_file.h"
#include "mirrowen/posix/syscalls.h"
#include "tarn/fs_operations.h"
#include "tarn/upload/file_upload_srv.h"
#include "tests/support/caught.h"
#include "tests/support/scoped_path_mapper.h"
#include "tests/support/scripted_dev.h"
#include "tests/support/temp_dir.h"
#include "tests/support/upload_kit.h"

namespace {

using brannock::transmission::areas_send_channel_t;
using brannock::transmission::kTransportVersion;
using brannock::transmission::net::netmngr_cfg_t;
using tarn::fs_operations_t;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;
using tests::Catch;

/// The library that holds a function.
template <class Result, class... Args>
std::string HolderOf(Result (*function)(Args...)) {
    Dl_info info = {};
    return ::dladdr(reinterpret_cast<const void*>(function), &info) != 0 ? info.dli_fname : "";
}

std::shared_ptr<fs_operations_t> Backend(const std::string& path) {
    return fs_operations_t::RecognizeFsPath(path, 0);
}

/// What a session of the upload server ends with that starts with an item of type `type` and goes on with `rest`.
tests::caught_t ServedItem(const std::string& type, const std::string& rest = {}) {
    const auto item = tests::message_t().U32(5).Text(type).Text("/a").U64(5).U32(0).U32(0).U32(4096).Raw(rest);
    const auto channel = std::make_shared<tests::scripted_dev_t>(item);
    tests::recording_console_t console;
    tarn::file_upload_srv_t server(channel, console, false, kTransportVersion, compat::SCompatibilityInfo());
    return Catch([&] { server.HandleCmds(nullptr); });
}

TEST(ExceptionsAcrossFloors, EveryFloorRunsFromItsOwnLibrary) {
    EXPECT_THAT(HolderOf(&posix::posix_file_t::Open4Read), HasSubstr("libMirrowen.so"));
    EXPECT_THAT(HolderOf(&CCorvelCtx::Inst), HasSubstr("libCorvel.so"));
    EXPECT_THAT(HolderOf(&netmngr_cfg_t::Unserial), HasSubstr("libBrannock.so"));
    EXPECT_THAT(HolderOf(&fs_operations_t::RecognizeFsPath), HasSubstr("libTarnwick.so"));
}

TEST(ExceptionsAcrossFloors, ThrownByCorvelCaughtHere) {
    EXPECT_THROW(CCorvelCtx::Inst()->GetAreaDevFactory("unknown"), exc::CRuntimeExc);
}

TEST(ExceptionsAcrossFloors, ThrownByBrannockCaughtHere) {
    io::binary_stream_tt noise(std::make_shared<tests::scripted_dev_t>("no configuration"));
    EXPECT_THROW(netmngr_cfg_t::Unserial(noise), exc::CRuntimeExc);
    const auto end =
        areas_send_channel_t::Create(std::make_shared<tests::scripted_dev_t>(), netmngr_cfg_t(), kTransportVersion);
    EXPECT_THROW(end->Finish(nullptr), exc::CNotImplExc);
}

TEST(ExceptionsAcrossFloors, ThrownByTarnwickCaughtHere) {
    const tests::temp_dir_t dir;
    EXPECT_THROW(Backend("tdatafs://name|1"), exc::CRuntimeExc);
    EXPECT_THROW(Backend(dir.path())->EnumerateDirectoryContent(dir.path()), exc::CNotImplExc);
    EXPECT_THROW(Backend(dir.path())->CreateNewFile(dir.path(), 0, false), exc::CAlreadyExistsExc);
    EXPECT_THROW(Backend(dir.path())->CreateDir(dir / "missing/dir"), posix::errno_exc_t);
}

// The backend has a handler for the system's "it exists", which the ground floor throws.
TEST(ExceptionsAcrossFloors, ThrownByMirrowenCaughtByTypeInTarnwick) {
    posix::syscalls_t table = posix::real_syscalls();
    table.open = [](const char*, int, mode_t) {
        errno = EEXIST;
        return -1;
    };
    const tests::temp_dir_t dir;
    const posix::scoped_syscalls_t inForce(table);
    EXPECT_THROW(Backend(dir / "file")->CreateNewFile(dir / "file", 0, false), exc::CAlreadyExistsExc);
}

TEST(ExceptionsAcrossFloors, ThrownByCorvelCaughtInTarnwickAndKeptAsTheCause) {
    const auto caught = ServedItem("unknown");
    EXPECT_TRUE(caught.Is<exc::CRuntimeExc>());
    EXPECT_EQ(caught.message, "Unable to process file upload commands.");
    EXPECT_THAT(caught.causes, Contains("Area device factory for token type [unknown] is not registered."));
    EXPECT_THROW(std::rethrow_exception(exc::RootCause(caught.error)), exc::CRuntimeExc);
}

TEST(ExceptionsAcrossFloors, ThrownByBrannockCaughtInTarnwickAndKeptAsTheCause) {
    CCorvelCtx::Inst()->RegisterAreaDevFactory(std::make_shared<tests::probe_factory_t>());
    const auto caught = ServedItem("probe", "no configuration");
    EXPECT_TRUE(caught.Is<exc::CRuntimeExc>());
    EXPECT_EQ(caught.message, "Unable to process file upload commands.");
    EXPECT_THAT(caught.causes, Contains(StartsWith("Invalid network configuration: it starts with [")));
    EXPECT_THROW(std::rethrow_exception(exc::RootCause(caught.error)), exc::CRuntimeExc);
}

// What we throw goes through libCorvel into libTarnwick, whose handlers tell the classes apart.
TEST(ExceptionsAcrossFloors, ThrownHereCaughtByTypeInTarnwick) {
    bool exists = false;
    bool opened = false;
    const tests::scoped_path_mapper_t mapper([&](const std::string& path) -> std::string {
        if (!opened) {
            return "MemFs://" + path;
        }
        exists ? throw exc::CAlreadyExistsExc("there") : throw exc::CRuntimeExc("refused");
    });
    const auto backend = Backend("rel");
    opened = true;
    const auto wrapped = Catch([&] { backend->CreateNewFile("rel", 0, false); });
    EXPECT_EQ(wrapped.message, "Failed to create new file by relative path [rel].");
    EXPECT_THAT(wrapped.causes, ElementsAre("refused"));
    exists = true;
    const auto unwrapped = Catch([&] { backend->CreateNewFile("rel", 0, false); });
    EXPECT_TRUE(unwrapped.Is<exc::CAlreadyExistsExc>());
    EXPECT_EQ(unwrapped.what, "there");
}

}  // namespace
