#include "mirrowen/util/file_info_read.h"

#include "mirrowen/posix/errno_exc.h"
#include "mirrowen/posix/syscalls.h"
#include "tests/support/as_nobody.h"
#include "tests/support/fake_user_names.h"
#include "tests/support/log_capture.h"
#include "tests/support/meta_fixture.h"

namespace util {

namespace {

using std::string_literals::operator""s;

class FileInfoReadTest : public ::testing::Test {
  protected:
    static CFileInfo Get(const std::string& path, bool followLinks = false) {
        return CFileInfo::getInfoForFile(path, followLinks);
    }

    static std::string ValueOf(const CFileInfo& info, const std::string& name) {
        for (const SExtendedAttribute& attribute : info.attributes) {
            if (attribute.name == name) {
                return attribute.value;
            }
        }
        return "(none)";
    }

    tests::meta_fixture_t files_;
    tests::fake_user_names_t names_;
};

TEST_F(FileInfoReadTest, AFileHasTypeSizeModeAndOwners) {
    names_.users["me"] = ::geteuid();
    const CFileInfo info = Get(files_.MakeFile("f", 04751));
    EXPECT_TRUE(info.isSet());
    EXPECT_EQ(info.type, EFileType::eRegular);
    EXPECT_EQ(info.size, 5U);
    EXPECT_EQ(info.mode, 04751U);
    EXPECT_EQ(info.owner, (SPrincipal{.name = "me", .id = ::geteuid()}));
    EXPECT_EQ(info.group, (SPrincipal{.name = "", .id = ::getegid()})) << "nobody knows this group's name";
    EXPECT_TRUE(info.posixAcl.IsEmpty());
}

TEST_F(FileInfoReadTest, TimesKeepNanosecondsAlsoBefore1970) {
    const std::string path = files_.MakeFile("f");
    const struct timespec times[2] = {{.tv_sec = 1700000000, .tv_nsec = 1}, {.tv_sec = -2, .tv_nsec = 999999999}};
    ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
    const CFileInfo info = Get(path);
    EXPECT_EQ(info.accessTime, (SFileTime{.seconds = 1700000000, .nanoseconds = 1}));
    EXPECT_EQ(info.modificationTime, (SFileTime{.seconds = -2, .nanoseconds = 999999999}));
    EXPECT_GT(info.changeTime.seconds, 1700000000);
}

TEST_F(FileInfoReadTest, EveryTypeIsTold) {
    EXPECT_EQ(Get(files_.MakeDirectory("d", 01777)).type, EFileType::eDirectory);
    EXPECT_EQ(Get(files_.Path("d")).mode, 01777U);
    EXPECT_EQ(Get(files_.MakeFifo("p")).type, EFileType::eFifo);
    EXPECT_EQ(Get("/dev/null").type, EFileType::eCharDevice);
}

TEST_F(FileInfoReadTest, ALinkIsFollowedOnlyOnRequest) {
    files_.MakeFile("f");
    const std::string link = files_.MakeLink("l", "f");
    const CFileInfo own = Get(link, false);
    EXPECT_TRUE(own.isSymlink());
    EXPECT_EQ(own.size, 1U);
    const CFileInfo followed = Get(link, true);
    EXPECT_EQ(followed.type, EFileType::eRegular);
    EXPECT_EQ(followed.size, 5U);
}

TEST_F(FileInfoReadTest, ADanglingLinkHasAttributesOfItsOwn) {
    const std::string link = files_.MakeLink("l", "nowhere");
    EXPECT_TRUE(Get(link, false).isSymlink());
    EXPECT_THROW(Get(link, true), posix::errno_exc_t);
}

TEST_F(FileInfoReadTest, AMissingFileIsNamed) {
    const std::string path = files_.Path("missing");
    try {
        Get(path);
        ADD_FAILURE();
    } catch (const posix::errno_exc_t& error) {
        EXPECT_EQ(error.Message(), "Failed to get attributes of [" + path + "]: No such file or directory");
        EXPECT_EQ(error.GetErrno(), ENOENT);
    }
}

TEST_F(FileInfoReadTest, ExtendedAttributesAreBytes) {
    const std::string path = files_.MakeFile("f");
    const std::string binary("\0\xff\n", 3);
    const std::string large(3000, 'v');
    files_.SetAttribute(path, "user.binary", binary);
    files_.SetAttribute(path, "user.empty", "");
    files_.SetAttribute(path, "user.large", large);
    const CFileInfo info = Get(path);
    EXPECT_EQ(info.attributes.size(), 3U);
    EXPECT_EQ(ValueOf(info, "user.binary"), binary);
    EXPECT_EQ(ValueOf(info, "user.empty"), "");
    EXPECT_EQ(ValueOf(info, "user.large"), large);
}

TEST_F(FileInfoReadTest, AccessListsTravelAsAttributes) {
    const std::string path = files_.MakeDirectory("d");
    files_.SetAttribute(path, "system.posix_acl_access", files_.AccessList());
    files_.SetAttribute(path, "system.posix_acl_default", files_.AccessList());
    const CFileInfo info = Get(path);
    EXPECT_EQ(ValueOf(info, "system.posix_acl_access"), files_.AccessList());
    EXPECT_EQ(ValueOf(info, "system.posix_acl_default"), files_.AccessList());
}

TEST_F(FileInfoReadTest, ALinksAttributesAreItsOwn) {
    if (!files_.IsRoot()) {
        GTEST_SKIP() << "only root may set trusted attributes, and links take no others";
    }
    const std::string target = files_.MakeFile("f");
    files_.SetAttribute(target, "trusted.on", "file");
    const std::string link = files_.MakeLink("l", "f");
    files_.SetAttribute(link, "trusted.on", "link");
    EXPECT_EQ(ValueOf(Get(link, false), "trusted.on"), "link");
    EXPECT_EQ(ValueOf(Get(link, true), "trusted.on"), "file");
}

TEST_F(FileInfoReadTest, ADescriptorGivesTheSameAsThePath) {
    const std::string path = files_.MakeFile("f", 0640);
    files_.SetAttribute(path, "user.a", "b");
    meta_problems_t problems;
    const CFileInfo info = ReadFromDescriptor(files_.Open(path).get(), path, problems);
    EXPECT_EQ(info, Get(path));
    EXPECT_TRUE(problems.empty());
    EXPECT_THROW(ReadFromDescriptor(-1, path, problems), posix::errno_exc_t);
}

TEST_F(FileInfoReadTest, ALinkIsReadThroughItsDirectory) {
    files_.MakeLink("l", "nowhere");
    const auto directory = files_.Open(files_.Path(""));
    const CFileInfo info = ReadLinkInfo(directory.get(), "l");
    EXPECT_TRUE(info.isSymlink());
    EXPECT_EQ(info.size, 7U);
    EXPECT_THROW(ReadLinkInfo(directory.get(), "missing"), posix::errno_exc_t);
}

TEST_F(FileInfoReadTest, NamesTooLongForTheSerialFormCountAsUnknown) {
    names_.users[std::string(257, 'u')] = ::geteuid();
    names_.groups[std::string(256, 'g')] = ::getegid();
    const CFileInfo info = Get(files_.MakeFile("f"));
    EXPECT_EQ(info.owner.name, "");
    EXPECT_EQ(info.group.name.size(), 256U);
}

TEST_F(FileInfoReadTest, WithoutPrivilegeTheReadableAttributesCome) {
    if (!files_.IsRoot()) {
        GTEST_SKIP() << "needs root to drop privileges";
    }
    const std::string path = files_.MakeFile("f");
    files_.SetAttribute(path, "user.a", "1");
    files_.SetAttribute(path, "trusted.b", "2");
    EXPECT_EQ(tests::RunAsNobody([&] {
                  const CFileInfo info = Get(path);
                  return std::to_string(info.attributes.size()) + ValueOf(info, "user.a");
              }),
              "11");
}

// Extended attributes as a test wants them; the system calls below answer from here.
struct attributes_t {
    std::string names;
    int listError = 0;
    int getError = 0;
};
attributes_t g_attributes;

ssize_t FakeList(const char*, char* list, std::size_t size) {
    if (g_attributes.listError != 0 || g_attributes.names.size() > size) {
        errno = g_attributes.listError != 0 ? g_attributes.listError : ERANGE;
        return -1;
    }
    g_attributes.names.copy(list, size);
    return static_cast<ssize_t>(g_attributes.names.size());
}

ssize_t FakeGet(const char*, const char* name, void* value, std::size_t size) {
    if (g_attributes.getError != 0 && std::string_view(name) == "user.bad") {
        errno = g_attributes.getError;
        return -1;
    }
    constexpr std::size_t kLength = 2000;
    if (size < kLength) {
        errno = ERANGE;
        return -1;
    }
    std::fill_n(static_cast<char*>(value), kLength, 'v');
    return kLength;
}

class FaultyAttributesTest : public FileInfoReadTest {
  protected:
    FaultyAttributesTest() : scope_(table_) { g_attributes = {}; }

    static posix::syscalls_t Faulty() {
        posix::syscalls_t table = posix::real_syscalls();
        table.llistxattr = FakeList;
        table.lgetxattr = FakeGet;
        return table;
    }

    const std::string path_ = files_.MakeFile("f");
    const posix::syscalls_t table_ = Faulty();
    const posix::scoped_syscalls_t scope_;
};

TEST_F(FaultyAttributesTest, AFileSystemWithoutAttributesHasNone) {
    g_attributes.listError = ENOTSUP;
    EXPECT_TRUE(Get(path_).attributes.empty());
}

TEST_F(FaultyAttributesTest, AListThatCannotBeReadFailsTheCall) {
    g_attributes.listError = EIO;
    try {
        Get(path_);
        ADD_FAILURE();
    } catch (const posix::errno_exc_t& error) {
        EXPECT_EQ(error.GetErrno(), EIO);
    }
}

TEST_F(FaultyAttributesTest, OtherNamespacesBelongToTheFileSystem) {
    g_attributes.names = "system.other\0user.a\0security.b\0trusted.c\0os2.d\0"s;
    const CFileInfo info = Get(path_);
    ASSERT_EQ(info.attributes.size(), 3U);
    EXPECT_EQ(info.attributes[0].name, "user.a");
    EXPECT_EQ(info.attributes[1].name, "security.b");
    EXPECT_EQ(info.attributes[2].name, "trusted.c");
}

TEST_F(FaultyAttributesTest, AnNfs4ListHasItsOwnPlace) {
    g_attributes.names = "system.nfs4_acl\0"s;
    const CFileInfo info = Get(path_);
    EXPECT_TRUE(info.attributes.empty());
    EXPECT_EQ(info.nfs4Acl, std::vector<std::uint8_t>(2000, 'v'));
}

TEST_F(FaultyAttributesTest, OneThatCannotBeReadIsLeftOutWithAWarning) {
    tests::log_capture_t log;
    g_attributes.names = "user.bad\0user.good\0"s;
    g_attributes.getError = EACCES;
    const CFileInfo info = Get(path_);
    ASSERT_EQ(info.attributes.size(), 1U);
    EXPECT_EQ(info.attributes[0].name, "user.good");
    ASSERT_EQ(log.Lines().size(), 1U);
    EXPECT_EQ(log.Lines()[0].level, logging::ELevel::eWarn);
    EXPECT_EQ(log.Lines()[0].text, "Failed to get extended attribute [user.bad] of [" + path_ + "]: Permission denied");
}

TEST_F(FaultyAttributesTest, OneThatVanishedSinceItWasListedIsNoProblem) {
    g_attributes.names = "user.bad\0"s;
    g_attributes.getError = ENODATA;
    meta_problems_t problems;
    EXPECT_TRUE(ReadFromPath(path_, false, problems).attributes.empty());
    EXPECT_TRUE(problems.empty());
}

TEST_F(FaultyAttributesTest, MoreThanAFileInfoHoldsIsReported) {
    for (int i = 0; i < 1000; ++i) {
        g_attributes.names += "user." + std::to_string(1000 + i) + '\0';
    }
    meta_problems_t problems;
    const CFileInfo info = ReadFromPath(path_, false, problems);
    // 1 MiB holds 521 attributes of 9 and 2000 bytes.
    EXPECT_EQ(info.attributes.size(), 521U);
    ASSERT_EQ(problems.size(), 479U);
    EXPECT_EQ(problems[0].error, E2BIG);
    EXPECT_EQ(problems[0].kind, EMetaProblem::eUnsupported);
    EXPECT_EQ(problems[0].what, "extended attribute [user.1521]");
}

}  // namespace

}  // namespace util
