#include "agent/gate/path_gate.h"

#include <gtest/gtest.h>

#include <optional>
#include <thread>

#include "agent/gate/session_scope.h"
#include "agent/root/name_rules.h"
#include "corvel/corvel_ctx.h"
#include "mirrowen/exc/runtime_exc.h"
#include "tarn/fs_operations.h"
#include "tarn/hostfs/hostfs_operations.h"
#include "tarn/memfs/memfs_operations.h"

namespace agent {
namespace {

using namespace std::string_literals;

/// The gate in a context of its own, as the dispatcher asks it.
class PathGate : public testing::Test {
  protected:
    PathGate() { InstallPathGate(context_); }

    std::string Map(const std::string& path) const { return context_.TryMapRelativePath(path); }

    /// The text of the refusal; empty when the path passed.
    std::string Refusal(const std::string& path) const {
        try {
            EXPECT_EQ(Map(path), path) << "a passed path must come back as it was";
        } catch (const exc::CRuntimeExc& error) {
            return error.what();
        }
        return {};
    }

  private:
    CCorvelCtx context_;
};

const std::vector<std::string>& AttackCorpus() {
    static const std::vector<std::string> corpus = {
        "",
        "/",
        "//",
        "/etc/passwd",
        "..",
        "../x",
        "a/../../x",
        "a/..",
        "a/b/../../../x",
        "./x",
        "a/./b",
        "a//b",
        "a/",
        "a\0b"s,
        "\0"s,
        "/\0"s,
        "..\0"s,
        std::string(256, 'n'),
        std::string("a/").append(256, 'n'),
        std::string(4096, 'n'),
        std::string(1 << 20, 'a'),
        "MemFs://x",
        "memfs://x",
        "MEMFS://",
        "FlrFS://x",
        "flrfs://{0}/x",
        "tdatafs://x|1",
        "tdatafs:\\\\x|1",
        "TDataFs:\\\\x|1",
        "TDATAFS://x",
        "RelativePath://x",
        "relativepath://..",
        "cloudfs://repo/x",
        "CloudFS://",
        "blobfs://x",
        "anything://x",
        "://",
        "://x",
        "a/b://c",
        "file:///etc/passwd",
        "http://host/x",
        ".tarn-staging",
        ".tarn-staging/x",
        ".tarn-staging/../x",
        ".TARN-Staging/lock",
    };
    return corpus;
}

TEST_F(PathGate, OnASessionsThreadEveryAttackIsRefusedAndNamed) {
    const session_scope_t scope;
    for (const std::string& path : AttackCorpus()) {
        const std::string text = Refusal(path);
        EXPECT_NE(text, "") << "passed: " << path;
        EXPECT_EQ(text.find("Path [" + ShownName(path) + "] is refused: "), 0U) << text;
        EXPECT_LT(text.size(), 500U);
    }
}

TEST_F(PathGate, AnotherBackendsPathIsRefusedForWhatItIs) {
    const session_scope_t scope;
    EXPECT_EQ(Refusal("mEmFs://slot"), "Path [mEmFs://slot] is refused: a session serves names below its root only.");
    EXPECT_EQ(Refusal("/etc/passwd"), "Path [/etc/passwd] is refused: it is absolute.");
}

TEST_F(PathGate, OnASessionsThreadSafeNamesComeBackUnchanged) {
    const session_scope_t scope;
    const std::vector<std::string> names = {
        "a"s,       "a/b/c"s, "...",          "..a/b.."s, "\xff\xfe/\x80"s,     "a b\nc"s,
        "memfs:x"s, "a:/b"s,  "tdatafs:\\x"s, "MemFs"s,   "x/.tarn-staging/y"s, std::string(255, 'n'),
        "~root"s,   "-rf"s,   "back\\slash"s};
    for (const std::string& path : names) {
        EXPECT_EQ(Refusal(path), "");
    }
}

TEST_F(PathGate, ProbesForDirectoriesPassWhenTheNameBeforeThemIsSafe) {
    const session_scope_t scope;
    EXPECT_EQ(Refusal("."), "");
    EXPECT_EQ(Refusal("a/b/."), "");
    for (const std::string path : {"../.", "/.", "./.", "a/../.", "/a/.", ".tarn-staging/.", "a//.", "MemFs://x/."}) {
        EXPECT_NE(Refusal(path), "") << path;
    }
}

TEST_F(PathGate, OutsideASessionEveryPathPasses) {
    for (const std::string& path : AttackCorpus()) {
        EXPECT_EQ(Map(path), path);
    }
}

TEST_F(PathGate, ScopesNestAndEnd) {
    EXPECT_FALSE(session_scope_t::IsActive());
    std::optional<session_scope_t> outer(std::in_place);
    {
        const session_scope_t inner;
        EXPECT_THROW(Map("/x"), exc::CRuntimeExc);
    }
    EXPECT_TRUE(session_scope_t::IsActive());
    EXPECT_THROW(Map("/x"), exc::CRuntimeExc);
    outer.reset();
    EXPECT_EQ(Map("/x"), "/x");
}

TEST_F(PathGate, AScopeBindsItsOwnThreadOnly) {
    const session_scope_t scope;
    std::string elsewhere;
    std::thread([&] { elsewhere = Map("/x"); }).join();
    EXPECT_EQ(elsewhere, "/x");
    EXPECT_THROW(Map("/x"), exc::CRuntimeExc);
}

/// The gate in the process's own context, asked by the dispatcher of all backends.
class PathGateInForce : public testing::Test {
  protected:
    PathGateInForce() { InstallPathGate(*CCorvelCtx::Inst()); }
    ~PathGateInForce() override { CCorvelCtx::Inst()->SetRelativePathMapper({}); }
};

TEST_F(PathGateInForce, NoBackendIsReachedByAnAttackOnASessionsThread) {
    const session_scope_t scope;
    for (const std::string& path : AttackCorpus()) {
        try {
            tarn::fs_operations_t::RecognizeFsPath(path, 0);
            ADD_FAILURE() << "served: " << path;
        } catch (const exc::CRuntimeExc& error) {
            EXPECT_NE(error.Message().find("is refused: "), std::string::npos) << error.Message();
        }
    }
}

TEST_F(PathGateInForce, SafeNamesAreServedByTheHostBackendUnwrapped) {
    const session_scope_t scope;
    const auto backend = tarn::fs_operations_t::RecognizeFsPath("a/b", 0);
    EXPECT_NE(dynamic_cast<tarn::hostfs::hostfs_operations_t*>(backend.get()), nullptr);
}

TEST_F(PathGateInForce, TheProcesssOwnWorkReachesEveryBackend) {
    EXPECT_NE(
        dynamic_cast<tarn::memfs::memfs_operations_t*>(tarn::fs_operations_t::RecognizeFsPath("MemFs://x", 0).get()),
        nullptr);
    EXPECT_NE(tarn::fs_operations_t::RecognizeFsPath("/etc/passwd", 0), nullptr);
}

}  // namespace
}  // namespace agent
