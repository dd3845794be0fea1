#include "agent/confine/capabilities.h"

#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>

#include "tests/support/as_nobody.h"
#include "tests/support/temp_dir.h"

namespace agent {
namespace {

std::string StatusOf(const std::string& field) {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.compare(0, field.size() + 1, field + ":") == 0) {
            return line.substr(field.size() + 2);
        }
    }
    return "?";
}

std::string Hex(capability_set_t set) {
    std::array<char, 17> text{};
    std::snprintf(text.data(), text.size(), "%016llx", static_cast<unsigned long long>(set));
    return text.data();
}

class CapabilitiesOfRoot : public testing::Test {
  protected:
    void SetUp() override {
        if (::geteuid() != 0) {
            GTEST_SKIP() << "needs root: others have no capability to give up";
        }
    }
};

TEST(Capabilities, TheEffectiveSetIsThatOfTheKernel) {
    EXPECT_EQ(Hex(EffectiveCapabilities()), StatusOf("CapEff"));
}

TEST_F(CapabilitiesOfRoot, WhatIsKeptStaysAndTheRestIsGoneFromEverySet) {
    const capability_set_t kept = CapabilityBit(CAP_CHOWN) | CapabilityBit(CAP_FOWNER) | CapabilityBit(CAP_BPF);
    const std::string sets = tests::RunInChild([kept] {
        ForgoPrivileges(kept);
        std::string text;
        for (const char* const field : {"CapInh", "CapPrm", "CapEff", "CapBnd", "CapAmb", "NoNewPrivs"}) {
            text += StatusOf(field) + " ";
        }
        return text;
    });
    const std::string none = Hex(0);
    const std::string some = Hex(kept);
    EXPECT_EQ(sets, none + " " + some + " " + some + " " + some + " " + none + " 1 ");
}

TEST_F(CapabilitiesOfRoot, WhatWasGivenUpBeforeIsNotRaisedAgain) {
    const std::string set = tests::RunInChild([] {
        ForgoPrivileges(CapabilityBit(CAP_CHOWN));
        ForgoPrivileges(CapabilityBit(CAP_CHOWN) | CapabilityBit(CAP_FOWNER));
        return StatusOf("CapEff");
    });
    EXPECT_EQ(set, Hex(CapabilityBit(CAP_CHOWN)));
}

TEST_F(CapabilitiesOfRoot, WithoutAnyTheModeBindsRoot) {
    const tests::temp_dir_t dir;
    tests::WriteFile(dir / "file", "x");
    ASSERT_EQ(::chmod((dir / "file").c_str(), 0), 0);
    const std::string outcome = tests::RunInChild([&] {
        ForgoPrivileges(0);
        const bool opened = std::ifstream(dir / "file").is_open();
        return std::string(opened ? "opened" : "refused") + (HasCapability(CAP_DAC_OVERRIDE) ? ", has" : ", has not");
    });
    EXPECT_EQ(outcome, "refused, has not");
}

TEST_F(CapabilitiesOfRoot, WhoHasNoneLosesTheWayToNewOnes) {
    const std::string outcome = tests::RunAsNobody([] {
        ForgoPrivileges(CapabilityBit(CAP_CHOWN));
        return StatusOf("CapEff") + " " + StatusOf("NoNewPrivs");
    });
    EXPECT_EQ(outcome, Hex(0) + " 1");
}

}  // namespace
}  // namespace agent
