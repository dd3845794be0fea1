// Symbolic links.
#include "tests/contract/backend_contract.h"

namespace contract {

using tarn::CSymlinkData;
using tarn::ESymlinkType;

TEST_P(BackendContract, ALinkIsReadBackAsItWasMade) {
    Put("target", "content");
    const CSymlinkData link(ESymlinkType::eFileLink, "target");
    const auto create = [&] { Fs().CreateSymLink(Path("link"), link); };
    CSymlinkData out;
    if (const deviation_t* const deviation = Without(EFeature::eLinks)) {
        ExpectRefusal(*deviation, Path("link"), create);
        EXPECT_FALSE(Fs().TryGetSymLinkInfo(Path("link"), out));
        EXPECT_FALSE(out.IsValid());
        return;
    }
    create();
    ASSERT_TRUE(Fs().TryGetSymLinkInfo(Path("link"), out));
    EXPECT_EQ(out.GetType(), ESymlinkType::eFileLink);
    EXPECT_EQ(static_cast<std::string>(out), "target");
    EXPECT_EQ(Get("link"), "content") << "reading goes through the link";
}

TEST_P(BackendContract, WhatIsNoLinkLeavesTheRecordUntouched) {
    Put("file", "content");
    for (const char* const name : {"file", "missing"}) {
        CSymlinkData out(ESymlinkType::eDirLink, "before");
        EXPECT_FALSE(Fs().TryGetSymLinkInfo(Path(name), out));
        EXPECT_EQ(static_cast<std::string>(out), "before");
        EXPECT_EQ(out.GetType(), ESymlinkType::eDirLink);
    }
}

TEST_P(BackendContract, DeletingALinkSparesItsTarget) {
    Put("target", "content");
    const auto create = [&] { Fs().CreateSymLink(Path("link"), CSymlinkData(ESymlinkType::eFileLink, "target")); };
    if (const deviation_t* const deviation = Without(EFeature::eLinks)) {
        return ExpectRefusal(*deviation, Path("link"), create);
    }
    create();
    Fs().DeleteFile(Path("link"));
    EXPECT_FALSE(Fs().IsObjectExist(Path("link")));
    EXPECT_EQ(Get("target"), "content");
}

TEST_P(BackendContract, CreatingAFileReplacesALinkAndNotItsTarget) {
    Put("target", "content");
    const auto create = [&] { Fs().CreateSymLink(Path("link"), CSymlinkData(ESymlinkType::eFileLink, "target")); };
    if (const deviation_t* const deviation = Without(EFeature::eLinks)) {
        return ExpectRefusal(*deviation, Path("link"), create);
    }
    create();
    const auto stream = Fs().CreateNewFile(Path("link"), 3, true);
    WriteText(*stream, "new");
    stream->Close(nullptr);
    EXPECT_EQ(Get("link"), "new");
    EXPECT_EQ(Get("target"), "content");
}

}  // namespace contract
