#include "tarn/blobfs/blob_fs_connnection.h"

#include <type_traits>

#include <gtest/gtest.h>

#include "tests/support/recording_blob_connection.h"
#include "tests/support/virtual_slot.h"

namespace tarn::blobfs {
namespace {

static_assert(std::is_abstract_v<CBlobFsConnnection> && std::has_virtual_destructor_v<CBlobFsConnnection>);
static_assert(std::is_same_v<decltype(std::declval<CBlobFsConnnection&>().GetPrefix()), const std::string&>);

// Shows what derived classes see.
class shown_t final : public CBlobFsConnnection {
  public:
    using CBlobFsConnnection::CBlobFsConnnection;
    void OnBlobFileCreated(const std::string& /*name*/) override {}
    const std::string& Extra() const { return extra_; }
    bool FieldsAreInOrder() const {
        const void* const fields[] = {&localTempFolder_, &targetTempFolder_, &extra_, &prefix_, &blobCounter_};
        return std::is_sorted(std::begin(fields), std::end(fields));
    }
};

TEST(BlobFsConnnection, KeepsWhatItIsGiven) {
    const shown_t connection("/local", "/target", "third");
    EXPECT_EQ(connection.GetLocalTempFolder(), "/local");
    EXPECT_EQ(connection.GetTargetTempFolder(), "/target");
    EXPECT_EQ(connection.Extra(), "third");
    EXPECT_EQ(connection.GetPrefix(), "blobfs://");
    EXPECT_TRUE(connection.FieldsAreInOrder());
}

TEST(BlobFsConnnection, NamesCountFromZero) {
    shown_t connection("", "", "");
    EXPECT_EQ(connection.NextBlobFile(), "blobfs0");
    EXPECT_EQ(connection.NextBlobFile(), "blobfs1");
    for (int i = 2; i != 10; ++i) {
        connection.NextBlobFile();
    }
    EXPECT_EQ(connection.NextBlobFile(), "blobfs10");
    EXPECT_EQ(shown_t("", "", "").NextBlobFile(), "blobfs0");
}

TEST(BlobFsConnnection, PrefixLosesThreeCharactersUnlessItIsShorter) {
    const char* const cases[][2] = {{"ab", "ab0"}, {"", "0"}, {"://", "0"}, {"a://", "a0"}, {"abcdef", "abc0"}};
    for (const auto& [prefix, name] : cases) {
        tests::recording_blob_connection_t connection;
        connection.SetPrefix(prefix);
        EXPECT_EQ(connection.NextBlobFile(), name);
    }
}

TEST(BlobFsConnnection, SlotAfterTheDestructorIsTheAnnouncement) {
    EXPECT_EQ(tests::VirtualSlot(&CBlobFsConnnection::OnBlobFileCreated), 1U);
    EXPECT_EQ(tests::VirtualSlot(&CBlobFsConnnection::NextBlobFile), 0U);
    EXPECT_EQ(tests::VirtualSlot(&CBlobFsConnnection::GetPrefix), 0U);
    EXPECT_EQ(tests::VirtualSlot(&CBlobFsConnnection::GetLocalTempFolder), 0U);
    EXPECT_EQ(tests::VirtualSlot(&CBlobFsConnnection::GetTargetTempFolder), 0U);
}

}  // namespace
}  // namespace tarn::blobfs
