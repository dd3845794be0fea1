#include "tarn/flr/flr_context.h"

#include <algorithm>

#include <gtest/gtest.h>

#include "mirrowen/util/fs.h"

namespace tarn {
namespace {

using components_t = std::vector<std::wstring>;
using rule_t = CFLRContext::SMappingRule;

static_assert(std::has_virtual_destructor_v<CFLRContext>);
static_assert(sizeof(CFLRContext) == sizeof(void*) + sizeof(std::vector<rule_t>));
static_assert(sizeof(rule_t) == sizeof(std::wstring) + sizeof(components_t));

/// What the path maps to, or "none".
std::string Map(const CFLRContext& context, const std::string& path) {
    std::string out = "untouched";
    const bool mapped = context.TryMapPath(path, out);
    EXPECT_TRUE(mapped || out == "untouched");
    return mapped ? out : "none";
}

/// Sets the process's switch for the life of this object.
class scoped_case_sensitivity_t {
  public:
    explicit scoped_case_sensitivity_t(bool sensitive)
        : previous_(std::exchange(util::g_fs_hosted_os_case_sensitive_paths, sensitive)) {}
    ~scoped_case_sensitivity_t() { util::g_fs_hosted_os_case_sensitive_paths = previous_; }
    scoped_case_sensitivity_t(const scoped_case_sensitivity_t&) = delete;
    scoped_case_sensitivity_t& operator=(const scoped_case_sensitivity_t&) = delete;

  private:
    bool previous_;
};

TEST(FlrContext, WithoutRulesNothingIsMapped) {
    const CFLRContext context;
    EXPECT_EQ(Map(context, "/mnt/a"), "none");
    EXPECT_EQ(Map(context, ""), "none");
}

TEST(FlrContext, PathUnderAMountPointMapsBelowItsRealPath) {
    CFLRContext context;
    context.AddMappingRule("/real", "/mnt/v");
    EXPECT_EQ(Map(context, "/mnt/v/a/b c"), "/real/a/b c");
    EXPECT_EQ(Map(context, "mnt/v/a"), "/real/a");
    EXPECT_EQ(Map(context, "//mnt//v//a/"), "/real/a");
    EXPECT_EQ(Map(context, "/mnt"), "none");
    EXPECT_EQ(Map(context, "/mnt/vv/a"), "none");
    EXPECT_EQ(Map(context, "/other/mnt/v"), "none");
}

TEST(FlrContext, PathEqualToAMountPointMapsToTheRealPathAndOneSlash) {
    CFLRContext context;
    context.AddMappingRule("/real", "/mnt/v");
    context.AddMappingRule("/with/slash/", "/mnt/w");
    EXPECT_EQ(Map(context, "/mnt/v"), "/real/");
    EXPECT_EQ(Map(context, "/mnt/w"), "/with/slash/");
    EXPECT_EQ(Map(context, "/mnt/w/a"), "/with/slash/a");
}

TEST(FlrContext, DeeperRuleWinsWhateverTheOrderOfAddition) {
    for (const bool deepFirst : {true, false}) {
        CFLRContext context;
        context.AddMappingRule(deepFirst ? "/deep" : "/flat", deepFirst ? "/mnt/v" : "/mnt");
        context.AddMappingRule(deepFirst ? "/flat" : "/deep", deepFirst ? "/mnt" : "/mnt/v");
        EXPECT_EQ(Map(context, "/mnt/v/a"), "/deep/a");
        EXPECT_EQ(Map(context, "/mnt/w/a"), "/flat/w/a");
    }
}

TEST(FlrContext, RulesStaySortedThroughManyAdditions) {
    std::vector<int> depths = {0, 1, 2, 3, 4, 5};
    do {
        CFLRContext context;
        for (const int depth : depths) {
            std::string mount;
            for (int i = 0; i < depth; ++i) {
                mount += "/d";
            }
            context.AddMappingRule("/real" + std::to_string(depth), mount);
        }
        EXPECT_EQ(Map(context, "/d/d/d/d/d/d/x"), "/real5/d/x");
        EXPECT_EQ(Map(context, "/d/d/d/x"), "/real3/x");
        EXPECT_EQ(Map(context, "/x"), "/real0/x");
    } while (std::next_permutation(depths.begin(), depths.end()));
}

TEST(FlrContext, RulesOfEqualDepthServeTheirOwnPaths) {
    CFLRContext context;
    for (int i = 0; i < 40; ++i) {  // more than the sort handles by insertion alone
        context.AddMappingRule("/real" + std::to_string(i), "/mnt/v" + std::to_string(i));
    }
    for (int i = 0; i < 40; ++i) {
        EXPECT_EQ(Map(context, "/mnt/v" + std::to_string(i) + "/a"), "/real" + std::to_string(i) + "/a");
    }
}

TEST(FlrContext, EmptyMountPointServesWhatNoOtherDoes) {
    CFLRContext context;
    context.AddMappingRule("/all", "");
    context.AddMappingRule("/real", "/mnt/v");
    EXPECT_EQ(Map(context, "/mnt/v/a"), "/real/a");
    EXPECT_EQ(Map(context, "/mnt/w"), "/all/mnt/w");
    EXPECT_EQ(Map(context, ""), "/all/");
}

TEST(FlrContext, ResetRemovesEveryRule) {
    CFLRContext context;
    context.AddMappingRule("/real", "/mnt/v");
    context.Reset();
    EXPECT_EQ(Map(context, "/mnt/v/a"), "none");
    context.AddMappingRule("/other", "/mnt/v");
    EXPECT_EQ(Map(context, "/mnt/v/a"), "/other/a");
}

TEST(FlrContext, LetterCaseMattersAsTheSwitchSays) {
    CFLRContext context;
    context.AddMappingRule("/real", "/Mnt/\xc3\x84");
    {
        const scoped_case_sensitivity_t sensitive(true);
        EXPECT_EQ(Map(context, "/mnt/\xc3\x84/a"), "none");
        EXPECT_EQ(Map(context, "/Mnt/\xc3\x84/a"), "/real/a");
    }
    const scoped_case_sensitivity_t insensitive(false);
    EXPECT_EQ(Map(context, "/mNT/\xc3\xa4/A"), "/real/A");
    EXPECT_EQ(Map(context, "/mntx/\xc3\xa4/A"), "none");
}

TEST(FlrContext, BytesThatAreNotUtf8Survive) {
    CFLRContext context;
    context.AddMappingRule("/r\xff", "/m\xfe");
    EXPECT_EQ(Map(context, "/m\xfe/a\xc3"), "/r\xff/a\xc3");
    EXPECT_EQ(Map(context, "/m\xfd/a"), "none");
}

TEST(FlrContext, ComponentsAreNotInterpreted) {
    CFLRContext context;
    context.AddMappingRule("/real", "/mnt");
    EXPECT_EQ(Map(context, "/mnt/../a/./b"), "/real/../a/./b");
}

TEST(FlrContext, PredicateIsStrict) {
    const rule_t flat("/r", "/a");
    const rule_t deep("/r", "/a/b");
    const rule_t alsoDeep("/q", "/c/d");
    EXPECT_TRUE(CFLRContext::RuleDescLengthSortPredicate(deep, flat));
    EXPECT_FALSE(CFLRContext::RuleDescLengthSortPredicate(flat, deep));
    EXPECT_FALSE(CFLRContext::RuleDescLengthSortPredicate(deep, alsoDeep));
    EXPECT_FALSE(CFLRContext::RuleDescLengthSortPredicate(flat, flat));
}

TEST(FlrContext, RuleHoldsWideRealPathAndSplitMountPoint) {
    const rule_t rule("/r\xc3\xa4", "/mnt//v/");
    EXPECT_EQ(rule.realPath, L"/r\u00e4");
    EXPECT_EQ(rule.mountPoint, (components_t{L"mnt", L"v"}));
    EXPECT_LT(static_cast<const void*>(&rule.realPath), static_cast<const void*>(&rule.mountPoint));
    components_t components = {L"old"};
    rule_t::GetMountPoint(L"/a/b", components);
    EXPECT_EQ(components, (components_t{L"a", L"b"}));
}

TEST(FlrContext, MountPointIsComparedByComponents) {
    const auto isOn = &CFLRContext::IsPathOnMountPoint;
    EXPECT_TRUE(isOn({L"a", L"b"}, {L"a"}, true));
    EXPECT_TRUE(isOn({L"a"}, {L"a"}, true));
    EXPECT_TRUE(isOn({L"a"}, {}, true));
    EXPECT_TRUE(isOn({}, {}, true));
    EXPECT_FALSE(isOn({L"a"}, {L"a", L"b"}, true));
    EXPECT_FALSE(isOn({L"ab"}, {L"a"}, true));
    EXPECT_FALSE(isOn({L"a"}, {L"ab"}, true));
    EXPECT_FALSE(isOn({L"A"}, {L"a"}, true));
    EXPECT_TRUE(isOn({L"A"}, {L"a"}, false));
    EXPECT_FALSE(isOn({L"x", L"a"}, {L"a"}, false));
}

TEST(FlrContext, RealPathJoinsTheRestByOneSlashEach) {
    EXPECT_EQ(CFLRContext::GetRealPath({L"m", L"a", L"b"}, rule_t("/r", "m")), L"/r/a/b");
    EXPECT_EQ(CFLRContext::GetRealPath({L"m", L"a"}, rule_t("/r/", "m")), L"/r/a");
    EXPECT_EQ(CFLRContext::GetRealPath({L"m"}, rule_t("/r", "m")), L"/r/");
    EXPECT_EQ(CFLRContext::GetRealPath({L"a"}, rule_t("", "")), L"/a");
}

}  // namespace
}  // namespace tarn
