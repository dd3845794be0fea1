#include "mirrowen/util/file_info_apply.h"

#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/posix/errno_exc.h"
#include "mirrowen/posix/syscalls.h"
#include "tests/support/as_nobody.h"
#include "tests/support/fake_user_names.h"
#include "tests/support/meta_fixture.h"

namespace util {

namespace {

constexpr std::uint32_t kStranger = 4711;

class FileInfoApplyTest : public ::testing::Test {
  protected:
    static CFileInfo InfoFor(EFileType type) {
        CFileInfo info;
        info.type = type;
        info.owner.id = ::geteuid();
        info.group.id = ::getegid();
        info.mode = 0640;
        info.accessTime = {.seconds = 1700000000, .nanoseconds = 1};
        info.modificationTime = {.seconds = -2, .nanoseconds = 999999999};
        return info;
    }

    static void ExpectTimes(const struct stat& status) {
        EXPECT_EQ(status.st_atim.tv_sec, 1700000000);
        EXPECT_EQ(status.st_atim.tv_nsec, 1);
        EXPECT_EQ(status.st_mtim.tv_sec, -2);
        EXPECT_EQ(status.st_mtim.tv_nsec, 999999999);
    }

    // "owner EPERM 0, mode EPERM 0": each problem's part, errno and kind.
    static std::string Summary(const apply_result_t& result) {
        std::string text;
        for (const SMetaProblem& problem : result.problems) {
            text += (text.empty() ? "" : ", ") + problem.what + " " +
                    (problem.error == 0 ? "0" : ::strerrorname_np(problem.error)) + " " +
                    std::to_string(static_cast<int>(problem.kind));
        }
        return text;
    }

    void SetUp() override {
        if (NeedsRoot() && !files_.IsRoot()) {
            GTEST_SKIP() << "needs root";
        }
    }

    virtual bool NeedsRoot() const { return false; }

    tests::meta_fixture_t files_;
    tests::fake_user_names_t names_;
};

class FileInfoApplyAsRootTest : public FileInfoApplyTest {
  protected:
    bool NeedsRoot() const override { return true; }
};

TEST_F(FileInfoApplyTest, AFileGetsEverything) {
    const std::string path = files_.MakeFile("f");
    CFileInfo info = InfoFor(EFileType::eRegular);
    info.attributes = {{.name = "user.a", .value = std::string("x\0", 2)},
                       {.name = "system.posix_acl_access", .value = files_.AccessList()}};
    info.mode = 0644;
    EXPECT_EQ(Summary(ApplyToDescriptor(files_.Open(path).get(), path, info)), "");
    const struct stat status = files_.Look(path);
    EXPECT_EQ(status.st_mode & 07777U, 0644U);
    EXPECT_EQ(files_.GetAttribute(path, "user.a"), std::string("x\0", 2));
    EXPECT_EQ(files_.GetAttribute(path, "system.posix_acl_access"), files_.AccessList());
    ExpectTimes(status);
}

TEST_F(FileInfoApplyTest, WhatWasAppliedIsReadBack) {
    const std::string path = files_.MakeFile("f");
    CFileInfo info = InfoFor(EFileType::eRegular);
    info.attributes = {{.name = "user.a", .value = "1"}};
    info.applyMetaForFile(path);
    CFileInfo found = CFileInfo::getInfoForFile(path, false);
    info.size = 5;
    info.changeTime = found.changeTime;
    EXPECT_EQ(found, info);
}

TEST_F(FileInfoApplyTest, ADirectoryGetsEverythingEvenWhenItsNewModeLocksIt) {
    const std::string path = files_.MakeDirectory("d");
    CFileInfo info = InfoFor(EFileType::eDirectory);
    info.mode = 03500;
    info.attributes = {{.name = "system.posix_acl_default", .value = files_.AccessList()}};
    info.applyMetaForFile(path);
    const struct stat status = files_.Look(path);
    EXPECT_EQ(status.st_mode & 07777U, 03500U);
    EXPECT_EQ(files_.GetAttribute(path, "system.posix_acl_default"), files_.AccessList());
    ExpectTimes(status);
}

TEST_F(FileInfoApplyTest, ALinkGetsItsOwnTimesAndItsTargetNone) {
    const std::string target = files_.MakeFile("f");
    const struct stat before = files_.Look(target);
    const std::string link = files_.MakeLink("l", "f");
    CFileInfo info = InfoFor(EFileType::eSymlink);
    info.mode = 0777;
    info.applyMetaForFile(link);
    ExpectTimes(files_.Look(link));
    const struct stat after = files_.Look(target);
    EXPECT_EQ(after.st_mode, before.st_mode);
    EXPECT_EQ(after.st_mtim.tv_sec, before.st_mtim.tv_sec);
}

TEST_F(FileInfoApplyTest, ALinkIsReachedThroughItsDirectory) {
    const std::string link = files_.MakeLink("l", "nowhere");
    CFileInfo info = InfoFor(EFileType::eSymlink);
    info.attributes = {{.name = "trusted.a", .value = "1"}};
    const auto directory = files_.Open(files_.Path(""));
    EXPECT_EQ(Summary(ApplyToLink(directory.get(), "l", info)), "extended attribute [trusted.a] EOPNOTSUPP 2");
    ExpectTimes(files_.Look(link));
}

TEST_F(FileInfoApplyTest, AFifoIsNotOpened) {
    const std::string path = files_.MakeFifo("p");
    InfoFor(EFileType::eFifo).applyMetaForFile(path);  // opening it for reading or writing would wait for a peer
    const struct stat status = files_.Look(path);
    EXPECT_EQ(status.st_mode & 07777U, 0640U);
    ExpectTimes(status);
}

TEST_F(FileInfoApplyTest, AnUnsetInfoChangesNothing) {
    const std::string path = files_.MakeFile("f", 0600);
    CFileInfo().applyMetaForFile(path);
    CFileInfo().applyMetaForFile(files_.Path("missing"));
    EXPECT_EQ(files_.Look(path).st_mode & 07777U, 0600U);
}

TEST_F(FileInfoApplyTest, AttributesOfALinkAndOfAFileAreNotMixedUp) {
    const std::string path = files_.MakeFile("f", 0600);
    const std::string link = files_.MakeLink("l", "f");
    CFileInfo ofLink = InfoFor(EFileType::eSymlink);
    ofLink.mode = 0777;
    EXPECT_EQ(Summary(ApplyToPath(path, ofLink)), "attributes of another type ELOOP 3");
    EXPECT_EQ(Summary(ApplyToDescriptor(files_.Open(path).get(), path, ofLink)), "attributes of another type ELOOP 3");
    EXPECT_EQ(Summary(ApplyToPath(link, InfoFor(EFileType::eRegular))), "attributes of another type ELOOP 3");
    EXPECT_EQ(files_.Look(path).st_mode & 07777U, 0600U);
}

TEST_F(FileInfoApplyTest, AMissingFileIsAnExceptionWithACause) {
    const std::string path = files_.Path("missing");
    try {
        InfoFor(EFileType::eRegular).applyMetaForFile(path);
        ADD_FAILURE();
    } catch (const exc::CRuntimeExc& error) {
        EXPECT_EQ(error.Message(), "Failed to apply attributes to [" + path + "].");
        EXPECT_STREQ(error.what(), ("Failed to apply attributes to [" + path + "].\nFailed to set attributes of [" +
                                    path + "]: No such file or directory")
                                       .c_str());
    }
}

TEST_F(FileInfoApplyTest, AttributesOutsideTheTransferableNamesAreNotSet) {
    const std::string path = files_.MakeFile("f");
    CFileInfo info = InfoFor(EFileType::eRegular);
    info.attributes = {{.name = "system.other", .value = "1"}, {.name = "nonsense", .value = "2"}};
    EXPECT_EQ(Summary(ApplyToPath(path, info)),
              "extended attribute [system.other] EOPNOTSUPP 2, extended attribute [nonsense] EOPNOTSUPP 2");
    ExpectTimes(files_.Look(path));
}

TEST_F(FileInfoApplyTest, ABrokenAccessListIsUnsupportedAndTheRestIsApplied) {
    const std::string path = files_.MakeFile("f");
    CFileInfo info = InfoFor(EFileType::eRegular);
    info.attributes = {{.name = "system.posix_acl_access", .value = std::string("\x02\0\0\0junk", 8)},
                       {.name = "user.a", .value = "1"}};
    EXPECT_EQ(Summary(ApplyToPath(path, info)), "extended attribute [system.posix_acl_access] EINVAL 2");
    EXPECT_EQ(files_.GetAttribute(path, "user.a"), "1");
    ExpectTimes(files_.Look(path));
}

TEST_F(FileInfoApplyTest, AnNfs4ListOnALocalFileIsUnsupported) {
    const std::string path = files_.MakeFile("f");
    CFileInfo info = InfoFor(EFileType::eRegular);
    info.nfs4Acl = {1, 2, 3};
    EXPECT_EQ(Summary(ApplyToPath(path, info)), "extended attribute [system.nfs4_acl] EOPNOTSUPP 2");
    try {
        setFileNaclSafe(path, info.nfs4Acl);
        ADD_FAILURE();
    } catch (const posix::errno_exc_t& error) {
        EXPECT_EQ(error.GetErrno(), ENOTSUP);
        EXPECT_EQ(error.Message(),
                  "Failed to set NFSv4 access-control list of [" + path + "]: Operation not supported");
    }
}

TEST_F(FileInfoApplyTest, OtherAttributesStayUnlessTheyAreToGo) {
    const std::string path = files_.MakeFile("f");
    files_.SetAttribute(path, "user.old", "1");
    files_.SetAttribute(path, "system.posix_acl_access", files_.AccessList());
    CFileInfo info = InfoFor(EFileType::eRegular);
    info.attributes = {{.name = "user.new", .value = "2"}};
    EXPECT_EQ(Summary(ApplyToPath(path, info)), "");
    EXPECT_EQ(files_.GetAttribute(path, "user.old"), "1");
    EXPECT_EQ(Summary(ApplyToPath(path, info, {.removeOtherAttributes = true})), "");
    EXPECT_EQ(files_.GetAttribute(path, "user.old"), "(none)");
    EXPECT_EQ(files_.GetAttribute(path, "system.posix_acl_access"), "(none)");
    EXPECT_EQ(files_.GetAttribute(path, "user.new"), "2");
    EXPECT_EQ(files_.Look(path).st_mode & 07777U, 0640U);
}

TEST_F(FileInfoApplyAsRootTest, TheOwnerIsFoundByNameAndElseByNumber) {
    const std::string path = files_.MakeFile("f");
    names_.users["alice"] = 1234;
    names_.groups["staff"] = 1235;
    CFileInfo info = InfoFor(EFileType::eRegular);
    info.owner = {.name = "alice", .id = kStranger};
    info.group = {.name = "staff", .id = kStranger};
    EXPECT_EQ(Summary(ApplyToPath(path, info)), "");
    EXPECT_EQ(files_.Look(path).st_uid, 1234U);
    EXPECT_EQ(files_.Look(path).st_gid, 1235U);

    EXPECT_EQ(Summary(ApplyToPath(path, info, {.owner = EOwnerSource::eNumber})), "");
    EXPECT_EQ(files_.Look(path).st_uid, kStranger);
    EXPECT_EQ(files_.Look(path).st_gid, kStranger);

    info.owner = {.name = "bob", .id = 4712};
    const apply_result_t result = ApplyToPath(path, info);
    EXPECT_EQ(Summary(result), "owner [bob] 0 1");
    EXPECT_EQ(DescribeMetaProblem(result.problems[0], "set"), "The owner [bob] of [" + path + "] is not known here.");
    EXPECT_EQ(files_.Look(path).st_uid, 4712U);
    EXPECT_NO_THROW(info.applyMetaForFile(path)) << "the number stands for an unknown name";
}

TEST_F(FileInfoApplyAsRootTest, SetUserIdAndCapabilitiesSurviveTheNewOwner) {
    const std::string path = files_.MakeFile("f");
    CFileInfo info = InfoFor(EFileType::eRegular);
    info.owner.id = info.group.id = kStranger;
    info.mode = 06755;
    // A version 2 capability record (linux/capability.h) that permits CAP_NET_BIND_SERVICE.
    const std::string capability("\x01\0\0\x02\0\x04\0\0\0\0\0\0\0\0\0\0\0\0\0\0", 20);
    info.attributes = {{.name = "security.capability", .value = capability}};
    info.applyMetaForFile(path);
    EXPECT_EQ(files_.Look(path).st_mode & 07777U, 06755U);
    EXPECT_EQ(files_.GetAttribute(path, "security.capability"), capability);
    ExpectTimes(files_.Look(path));
}

TEST_F(FileInfoApplyAsRootTest, ALinkGetsOwnerAndAttributes) {
    files_.MakeFile("f");
    const std::string link = files_.MakeLink("l", "f");
    CFileInfo info = InfoFor(EFileType::eSymlink);
    info.owner.id = kStranger;
    info.attributes = {{.name = "trusted.a", .value = "1"}};
    EXPECT_EQ(Summary(ApplyToPath(link, info)), "");
    EXPECT_EQ(files_.Look(link).st_uid, kStranger);
    EXPECT_EQ(files_.GetAttribute(link, "trusted.a"), "1");
    EXPECT_EQ(files_.Look(files_.Path("f")).st_uid, 0U);
    EXPECT_EQ(files_.GetAttribute(files_.Path("f"), "trusted.a"), "(none)");
}

TEST_F(FileInfoApplyAsRootTest, AnOwnerOfAllOnesIsNotTakenForKeep) {
    const std::string path = files_.MakeFile("f");
    CFileInfo info = InfoFor(EFileType::eRegular);
    info.owner.id = ~std::uint32_t{0};
    info.group.id = kStranger;
    EXPECT_EQ(Summary(ApplyToPath(path, info)), "owner EINVAL 1");
    EXPECT_EQ(files_.Look(path).st_uid, 0U);
    EXPECT_EQ(files_.Look(path).st_gid, kStranger);
}

TEST_F(FileInfoApplyAsRootTest, SomebodyElsesFileRefusesEveryPart) {
    const std::string path = files_.MakeFile("f");
    CFileInfo info = InfoFor(EFileType::eRegular);
    info.owner.id = kStranger;
    info.attributes = {{.name = "user.a", .value = "1"}};
    EXPECT_EQ(tests::RunAsNobody([&] { return Summary(ApplyToPath(path, info)); }),
              "owner EPERM 0, extended attribute [user.a] EACCES 0, mode EPERM 0, times EPERM 0");
    EXPECT_THAT(
        tests::RunAsNobody([&] {
            info.applyMetaForFile(path);
            return std::string();
        }),
        ::testing::StartsWith("threw: Failed to apply attributes to [" + path + "].\nFailed to set owner of ["));
}

TEST_F(FileInfoApplyAsRootTest, WithoutTheOwnerTheSetIdBitsAreLeftOut) {
    const std::string path = files_.MakeFile("f");
    ASSERT_EQ(::chown(path.c_str(), 65534, 65534), 0);
    CFileInfo info = InfoFor(EFileType::eRegular);
    info.group.id = 65534;
    info.mode = 06755;
    for (const EFileType claimed : {EFileType::eRegular, EFileType::eDirectory}) {
        info.type = claimed;  // what the target is decides, not what the info says
        EXPECT_EQ(tests::RunAsNobody([&] { return Summary(ApplyToPath(path, info)); }),
                  "owner EPERM 0, set-ID bits of the mode EPERM 0");
        EXPECT_EQ(files_.Look(path).st_mode & 07777U, 0755U);
    }
    ExpectTimes(files_.Look(path));
}

TEST_F(FileInfoApplyAsRootTest, AnUnreadableFileOfOnesOwnIsChangedByName) {
    const std::string path = files_.MakeFile("f", 0200);
    ASSERT_EQ(::chown(path.c_str(), 65534, 65534), 0);
    CFileInfo info = InfoFor(EFileType::eRegular);
    info.owner.id = info.group.id = 65534;
    info.attributes = {{.name = "user.a", .value = "1"}};
    EXPECT_EQ(tests::RunAsNobody([&] { return Summary(ApplyToPath(path, info)); }), "");
    EXPECT_EQ(files_.Look(path).st_mode & 07777U, 0640U);
    EXPECT_EQ(files_.GetAttribute(path, "user.a"), "1");
    ExpectTimes(files_.Look(path));
}

TEST_F(FileInfoApplyAsRootTest, AFileInAReadOnlyDirectoryIsChanged) {
    const std::string directory = files_.MakeDirectory("d");
    const std::string path = files_.MakeFile("d/f");
    ASSERT_EQ(::chown(path.c_str(), 65534, 65534), 0);
    ASSERT_EQ(::chmod(directory.c_str(), 0555), 0);
    CFileInfo info = InfoFor(EFileType::eRegular);
    info.owner.id = info.group.id = 65534;
    EXPECT_EQ(tests::RunAsNobody([&] { return Summary(ApplyToPath(path, info)); }), "");
    ExpectTimes(files_.Look(path));
}

// The order in which the system calls came.
std::string g_calls;

class ApplyOrderTest : public FileInfoApplyTest {};

TEST_F(ApplyOrderTest, OwnerThenAttributesThenModeThenTimes) {
    g_calls.clear();
    posix::syscalls_t table = posix::real_syscalls();
    table.fchownat = [](int, const char*, uid_t, gid_t, int) {
        g_calls += "owner ";
        return 0;
    };
    table.fsetxattr = [](int, const char* name, const void*, std::size_t, int) {
        g_calls += name + std::string(" ");
        return 0;
    };
    table.fchmod = [](int, mode_t) {
        g_calls += "mode ";
        return 0;
    };
    table.futimens = [](int, const struct timespec*) {
        g_calls += "times";
        return 0;
    };
    const std::string path = files_.MakeFile("f");
    CFileInfo info = InfoFor(EFileType::eRegular);
    info.owner.id = kStranger;
    info.group.id = kStranger;
    info.attributes = {{.name = "user.a", .value = "1"}, {.name = "system.posix_acl_access", .value = "2"}};
    info.nfs4Acl = {1};
    const posix::scoped_syscalls_t scope(table);
    EXPECT_EQ(Summary(ApplyToPath(path, info)), "");
    EXPECT_EQ(g_calls, "owner user.a system.posix_acl_access system.nfs4_acl mode times");
}

TEST_F(ApplyOrderTest, FailuresThatNobodyExpectsAreOther) {
    posix::syscalls_t table = posix::real_syscalls();
    table.fchownat = [](int, const char*, uid_t, gid_t, int) {
        errno = EIO;
        return -1;
    };
    table.fchmod = [](int, mode_t) {
        errno = EROFS;
        return -1;
    };
    table.futimens = [](int, const struct timespec*) {
        errno = ENOSYS;
        return -1;
    };
    const std::string path = files_.MakeFile("f");
    CFileInfo info = InfoFor(EFileType::eRegular);
    info.owner.id = kStranger;
    const posix::scoped_syscalls_t scope(table);
    EXPECT_EQ(Summary(ApplyToPath(path, info)), "owner EIO 3, mode EROFS 3, times ENOSYS 2");
}

}  // namespace

}  // namespace util
