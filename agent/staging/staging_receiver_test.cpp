#include "agent/staging/staging_receiver.h"

#include <gtest/gtest.h>

#include "mirrowen/exc/runtime_exc.h"
#include "tests/support/staging_fixture.h"

namespace agent {
namespace {

using namespace std::string_literals;
using tests::TextOf;

class StagingReceiver : public tests::staging_fixture_t {};

TEST_F(StagingReceiver, EveryUnsafePathIsRefusedForEveryKindAtOnce) {
    const auto before = tests::SnapshotOf(Top());
    for (const std::string& path :
         {"/etc/passwd"s, ".."s, "../x"s, "a/../../x"s, "a//x"s, "a/"s, "."s, "./x"s, ".tarn-staging"s,
          ".tarn-staging/lock"s, ".TARN-STAGING/lock"s, "MemFs://x"s, std::string(256, 'n')}) {
        for (const EItemKind kind : {EItemKind::eFile, EItemKind::eDirectory, EItemKind::eLink}) {
            const std::string text = TextOf([&] { Make(Item(kind, path), 0, true); });
            EXPECT_NE(text.find("is refused: "), std::string::npos) << path << ": " << text;
        }
    }
    EXPECT_EQ(tests::SnapshotOf(Top()), before);
}

TEST_F(StagingReceiver, KeepsTheStagingFolderAsLongAsADeviceLives) {
    dev_t dev = Make(File("new"), 1);
    DropReceiver();
    dev->Write(tests::AreaOf("x", 0));
    dev->Finish(nullptr);
    dev.reset();
    EXPECT_EQ(tests::ReadFile(Inside() / "new"), "x");
    EXPECT_FALSE(std::filesystem::exists(Inside() / ".tarn-staging"));
}

}  // namespace
}  // namespace agent
