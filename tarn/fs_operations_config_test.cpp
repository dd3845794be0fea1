#include "tarn/fs_operations_config.h"

#include <gtest/gtest.h>

namespace tarn {
namespace {

using throttling_t = std::shared_ptr<io::CNetworkTrottlingCtx>;

/// Expects the defaults; a preset's own fields are set back by its test first.
void ExpectDefaults(const SFsOperationsConfig& config) {
    EXPECT_TRUE(config.option1);
    EXPECT_FALSE(config.option2);
    EXPECT_TRUE(config.option3);
    EXPECT_EQ(config.flags, 0U);
    EXPECT_EQ(config.text1, "");
    EXPECT_EQ(config.text2, "");
    EXPECT_EQ(config.cloudPath, "");
    EXPECT_FALSE(config.option4);
    EXPECT_TRUE(config.verboseLogging);
}

TEST(FsOperationsConfig, ConstructorSetsDefaultsAndTakesTheThrottlingOver) {
    auto throttling = std::make_shared<io::CNetworkTrottlingCtx>();
    const auto* const raw = throttling.get();
    const SFsOperationsConfig config(std::move(throttling));
    ExpectDefaults(config);
    EXPECT_EQ(config.throttling.get(), raw);
    EXPECT_EQ(config.throttling.use_count(), 1);
    EXPECT_EQ(throttling, nullptr);  // NOLINT(bugprone-use-after-move): that is the point
}

TEST(FsOperationsConfig, EmptyThrottlingIsValid) {
    const SFsOperationsConfig config{throttling_t()};
    ExpectDefaults(config);
    EXPECT_EQ(config.throttling, nullptr);
}

TEST(FsOperationsConfig, CopyHasItsOwnFieldsAndSharesTheThrottling) {
    SFsOperationsConfig config(std::make_shared<io::CNetworkTrottlingCtx>());
    SFsOperationsConfig copy = config;
    copy.cloudPath = "cloudfs://x";
    copy.DisableVerboseLogging();
    EXPECT_EQ(config.cloudPath, "");
    EXPECT_TRUE(config.verboseLogging);
    EXPECT_EQ(copy.throttling, config.throttling);
    EXPECT_EQ(config.throttling.use_count(), 2);
}

TEST(FsOperationsConfig, DefaultPresetChangesNothing) {
    const auto throttling = std::make_shared<io::CNetworkTrottlingCtx>();
    const SFsOperationsConfig config = SFsOperationsConfig::CreateDefaultConfig(throttling);
    ExpectDefaults(config);
    EXPECT_EQ(config.throttling, throttling);
}

TEST(FsOperationsConfig, TapePresetSetsTheFirstFlagAloneOrBoth) {
    const auto throttling = std::make_shared<io::CNetworkTrottlingCtx>();
    SFsOperationsConfig plain = SFsOperationsConfig::CreateFile2TapeBackupConfig(throttling, false);
    SFsOperationsConfig variant = SFsOperationsConfig::CreateFile2TapeBackupConfig(throttling, true);
    EXPECT_EQ(plain.flags, 1U);
    EXPECT_EQ(variant.flags, 3U);
    EXPECT_EQ(plain.throttling, throttling);
    EXPECT_EQ(variant.throttling, throttling);
    plain.flags = variant.flags = 0;
    ExpectDefaults(plain);
    ExpectDefaults(variant);
}

TEST(FsOperationsConfig, NasPresetClearsTheThirdOptionAndVerboseLogging) {
    const auto throttling = std::make_shared<io::CNetworkTrottlingCtx>();
    SFsOperationsConfig config = SFsOperationsConfig::CreateNasBackupConfig(throttling);
    EXPECT_FALSE(config.option3);
    EXPECT_FALSE(config.verboseLogging);
    EXPECT_EQ(config.throttling, throttling);
    config.option3 = config.verboseLogging = true;
    ExpectDefaults(config);
}

TEST(FsOperationsConfig, DisablingVerboseLoggingTouchesNothingElse) {
    SFsOperationsConfig config{throttling_t()};
    config.DisableVerboseLogging();
    EXPECT_FALSE(config.verboseLogging);
    config.verboseLogging = true;
    ExpectDefaults(config);
}

TEST(FsOperationsConfig, FieldsStandInTheirOrder) {
    const SFsOperationsConfig config{throttling_t()};
    const std::vector<const void*> fields = {
        &config.option1, &config.option2,   &config.option3, &config.flags,          &config.text1,
        &config.text2,   &config.cloudPath, &config.option4, &config.verboseLogging, &config.throttling};
    EXPECT_TRUE(std::is_sorted(fields.begin(), fields.end(), std::less<>()));
}

}  // namespace
}  // namespace tarn
