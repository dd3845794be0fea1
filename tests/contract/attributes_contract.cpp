// Attributes.
#include "tests/contract/backend_contract.h"

namespace contract {

TEST_P(BackendContract, AFileIsDescribed) {
    Put("file", "content");
    const util::CFileInfo info = Fs().GetFileMetadata(Path("file"), tarn::EFileInfoType::eFileInfoBasic);
    if (const deviation_t* const deviation = Without(EFeature::eAttributes)) {
        SCOPED_TRACE(deviation->reason);
        EXPECT_EQ(info, util::CFileInfo());
        return;
    }
    EXPECT_EQ(info.type, util::EFileType::eRegular);
    EXPECT_EQ(info.size, 7U);
    EXPECT_GT(info.modificationTime.seconds, 0);
    EXPECT_TRUE(info.posixAcl.IsEmpty());
}

TEST_P(BackendContract, ADirectoryIsDescribed) {
    if (const deviation_t* const deviation = Without(EFeature::eDirectories)) {
        return ExpectRefusal(*deviation, Path("dir"), [&] { Fs().CreateDir(Path("dir")); });
    }
    Fs().CreateDir(Path("dir"));
    EXPECT_EQ(Fs().GetFileMetadata(Path("dir"), tarn::EFileInfoType::eFileInfoBasic).type, util::EFileType::eDirectory);
}

TEST_P(BackendContract, DescribingWhatIsNotThere) {
    const auto describe = [&] { return Fs().GetFileMetadata(Path("missing"), tarn::EFileInfoType::eFileInfoBasic); };
    if (const deviation_t* const deviation = Without(EFeature::eAttributes)) {
        SCOPED_TRACE(deviation->reason);
        EXPECT_EQ(describe(), util::CFileInfo());
        return;
    }
    EXPECT_NE(tests::Catch(describe).message.find("[" + Backend().StreamPath("missing") + "]"), std::string::npos);
}

TEST_P(BackendContract, AccessControlListsCannotBeRead) {
    Put("file", "content");
    for (const auto type : {tarn::EFileInfoType::eFileInfoAclOnly, tarn::EFileInfoType::eFileInfoFull}) {
        const auto describe = [&] { return Fs().GetFileMetadata(Path("file"), type); };
        if (const deviation_t* const deviation = Without(EFeature::eAttributes)) {
            SCOPED_TRACE(deviation->reason);
            EXPECT_EQ(describe(), util::CFileInfo());
            continue;
        }
        EXPECT_EQ(tests::Catch(describe).message,
                  "static util::CPosixAclValue linuxacl::CLinuxAcl::GetAclForFile(const string&) -- not implemented");
    }
}

TEST_P(BackendContract, AttributesAreApplied) {
    Put("file", "content");
    if (const deviation_t* const deviation = Without(EFeature::eSetAttributes)) {
        return ExpectRefusal(*deviation, Path("file"), [&] { Fs().SetFileMetadata(util::CFileInfo(), Path("file")); });
    }
    const auto describe = [&] { return Fs().GetFileMetadata(Path("file"), tarn::EFileInfoType::eFileInfoBasic); };
    util::CFileInfo info = describe();
    info.mode = 0640;
    info.modificationTime = {1000000000, 123456789};
    Fs().SetFileMetadata(info, Path("file"));
    EXPECT_EQ(describe().mode, 0640U);
    EXPECT_EQ(describe().modificationTime, info.modificationTime);
}

}  // namespace contract
