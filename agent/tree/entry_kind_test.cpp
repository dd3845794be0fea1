#include "agent/tree/entry_kind.h"

#include <gtest/gtest.h>

namespace agent {
namespace {

TEST(EntryKind, IsToldByTheModeAndHasAName) {
    const auto name = [](mode_t type) { return NameOfKind(KindOf(type | 0644)); };
    EXPECT_STREQ(name(S_IFREG), "file");
    EXPECT_STREQ(name(S_IFDIR), "directory");
    EXPECT_STREQ(name(S_IFLNK), "link");
    EXPECT_STREQ(name(S_IFIFO), "FIFO");
    EXPECT_STREQ(name(S_IFSOCK), "socket");
    EXPECT_STREQ(name(S_IFBLK), "device");
    EXPECT_STREQ(name(S_IFCHR), "device");
}

TEST(EntryKind, OnlyWhatNoCopyTakesIsSpecial) {
    for (const EEntryKind kind : {EEntryKind::eFile, EEntryKind::eDirectory, EEntryKind::eLink}) {
        EXPECT_FALSE(IsSpecial(kind)) << NameOfKind(kind);
    }
    for (const EEntryKind kind : {EEntryKind::eFifo, EEntryKind::eSocket, EEntryKind::eDevice}) {
        EXPECT_TRUE(IsSpecial(kind)) << NameOfKind(kind);
    }
}

}  // namespace
}  // namespace agent
