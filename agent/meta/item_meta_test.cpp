#include "agent/meta/item_meta.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <cerrno>

#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/posix/errno_exc.h"
#include "tests/support/faulty_syscalls.h"
#include "tests/support/root_fixture.h"

namespace agent {
namespace {

namespace fs = std::filesystem;

class ItemMeta : public tests::root_fixture_t {
  protected:
    ItemMeta() : root_fixture_t(EResolver::eKernel) {}

    /// What happened to the collector's warnings, one letter each: p(rivilege), o(wner), u(nsupported).
    std::string Kinds() const {
        std::string kinds;
        for (const item_warning_t& warning : warnings_->Get()) {
            kinds += "pou?"[static_cast<int>(warning.kind)];
        }
        return kinds;
    }

    std::shared_ptr<item_warnings_t> warnings_ = std::make_shared<item_warnings_t>();
};

TEST_F(ItemMeta, AttributesOfAFileComeBackOnAnother) {
    const auto from = Root().OpenFile("a/b/x");
    ASSERT_EQ(::chmod((Inside() / "a/b/x").c_str(), 0640), 0);
    util::CFileInfo info = ReadMeta(from->GetDescriptor(), "x", warnings_);
    EXPECT_EQ(info.type, util::EFileType::eRegular);
    EXPECT_EQ(info.size, 6U);
    EXPECT_EQ(info.mode, 0640U);
    const auto to = Root().CreateFile("copy");
    ApplyMeta(to->GetDescriptor(), info, "copy", warnings_);
    util::CFileInfo copied = ReadMeta(Root().OpenFile("copy")->GetDescriptor(), "copy", warnings_);
    copied.size = info.size;
    copied.changeTime = info.changeTime;
    EXPECT_EQ(copied, info);
    EXPECT_EQ(warnings_->Count(), 0U);
}

TEST_F(ItemMeta, UnsetAttributesChangeNothing) {
    const auto before = tests::SnapshotOf(Inside());
    ApplyMeta(Root().OpenFile("top")->GetDescriptor(), {}, "top", warnings_);
    EXPECT_EQ(tests::SnapshotOf(Inside()), before);
}

TEST_F(ItemMeta, LinksAreReadAndChangedThemselves) {
    fs::create_symlink(Outside() / "b/x", Inside() / "link");
    const auto before = tests::SnapshotOf(Outside());
    util::CFileInfo info = ReadLinkMeta(Root().GetDescriptor(), "link");
    EXPECT_TRUE(info.isSymlink());
    info.modificationTime = {1100000000, 7};
    info.owner.name.clear();
    info.owner.id = 1234;
    ApplyLinkMeta(Root().GetDescriptor(), "link", info, "shown", warnings_);
    EXPECT_EQ(Root().Stat("link").st_mtim.tv_sec, 1100000000);
    EXPECT_EQ(Root().Stat("link").st_uid, 1234U);
    EXPECT_EQ(tests::SnapshotOf(Outside()), before);
    EXPECT_THROW(ReadLinkMeta(Root().GetDescriptor(), "missing"), posix::errno_exc_t);
}

TEST_F(ItemMeta, WhatLacksPrivilegeOwnerOrSupportIsAWarning) {
    util::CFileInfo info;
    info.type = util::EFileType::eRegular;
    info.owner = {"nobody-has-this-name", 1234};
    info.mode = 0600;
    info.attributes = {{"weird.namespace", "x"}};
    tests::faulty_syscalls_t calls;
    calls.Fail<&posix::syscalls_t::futimens>(EPERM);
    ApplyMeta(Root().OpenFile("top")->GetDescriptor(), info, "shown", warnings_);
    EXPECT_EQ(Kinds(), "oup");
    for (const item_warning_t& warning : warnings_->Get()) {
        EXPECT_EQ(warning.path, "shown");
        EXPECT_NE(warning.text.find("[shown]"), std::string::npos) << warning.text;
    }
}

TEST_F(ItemMeta, AnythingElseIsThrownAfterEverythingWasTried) {
    util::CFileInfo info;
    info.type = util::EFileType::eRegular;
    info.mode = 0600;
    info.modificationTime = {1100000000, 0};
    tests::faulty_syscalls_t calls;
    calls.Fail<&posix::syscalls_t::fchmod>(EIO);
    EXPECT_THROW(ApplyMeta(Root().OpenFile("top")->GetDescriptor(), info, "shown", warnings_), exc::CRuntimeExc);
    EXPECT_EQ(Root().Stat("top").st_mtim.tv_sec, 1100000000);
}

TEST_F(ItemMeta, InheritedListsAreRemoved) {
    // The kernel's form of user::rwx, user:1234:rwx, group::rwx, mask::rwx, other::---.
    const unsigned char list[] = {2, 0,    0,    0,    1,    0,    7,  0, 0xff, 0xff, 0xff, 0xff, 2,    0,   7,
                                  0, 0xd2, 4,    0,    0,    4,    0,  7, 0,    0xff, 0xff, 0xff, 0xff, 16,  0,
                                  7, 0,    0xff, 0xff, 0xff, 0xff, 32, 0, 0,    0,    0xff, 0xff, 0xff, 0xff};
    const auto directory = Inside() / "a";
    EXPECT_EQ(FindInherited(Root().OpenDirectory("a").get()), EInherited::eNothing);
    if (::setxattr(directory.c_str(), "system.posix_acl_default", list, sizeof list, 0) != 0) {
        GTEST_SKIP() << "the file system of the temporary folder has no access-control lists";
    }
    EXPECT_EQ(FindInherited(Root().OpenDirectory("a").get()), EInherited::ePerhaps);
    EXPECT_EQ(FindInherited(-1), EInherited::ePerhaps) << "what cannot be found out";
    const auto file = Root().CreateFile("a/heir");
    ASSERT_GT(::fgetxattr(file->GetDescriptor(), "system.posix_acl_access", nullptr, 0), 0);
    util::CFileInfo info;
    info.type = util::EFileType::eRegular;
    info.mode = 0640;
    ApplyMeta(file->GetDescriptor(), info, "heir", warnings_);
    EXPECT_LT(::fgetxattr(file->GetDescriptor(), "system.posix_acl_access", nullptr, 0), 0);
    EXPECT_EQ(Root().Stat("a/heir").st_mode & 07777U, 0640U);
    EXPECT_EQ(warnings_->Count(), 0U);
}

}  // namespace
}  // namespace agent
