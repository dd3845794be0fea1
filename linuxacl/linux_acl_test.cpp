#include "linuxacl/linux_acl.h"

#include <typeinfo>

#include <gtest/gtest.h>

namespace {

using linuxacl::CLinuxAcl;

// Existing, missing and empty: the refusal does not depend on the path.
class LinuxAclTest : public testing::TestWithParam<const char*> {};

template <class Operation>
void ExpectRefusal(const Operation& operation, const std::string& text) {
    try {
        operation();
        FAIL() << "no exception";
    } catch (const std::exception& error) {
        EXPECT_EQ(typeid(error), typeid(std::runtime_error));
        EXPECT_EQ(error.what(), text);
    }
}

TEST_P(LinuxAclTest, ReadingIsRefusedWithTheSignature) {
    ExpectRefusal([] { CLinuxAcl::GetAclForFile(GetParam()); },
                  "static util::CPosixAclValue linuxacl::CLinuxAcl::GetAclForFile(const string&) -- not implemented");
}

TEST_P(LinuxAclTest, SettingIsRefusedWithTheSignature) {
    ExpectRefusal([] { CLinuxAcl::SetAclForFile(GetParam(), util::CPosixAclValue()); },
                  "static void linuxacl::CLinuxAcl::SetAclForFile(const string&, const util::CPosixAclValue&) -- not "
                  "implemented");
}

TEST_P(LinuxAclTest, TheQuestionForAnExtendedListIsRefusedWithTheSignature) {
    ExpectRefusal([] { CLinuxAcl::IsExtendedAcl(GetParam()); },
                  "static bool linuxacl::CLinuxAcl::IsExtendedAcl(const string&) -- not implemented");
}

INSTANTIATE_TEST_SUITE_P(AnyPath, LinuxAclTest, testing::Values("/", "/no such file", ""));

}  // namespace
