#include "agent/blob/apply_blob.h"

#include <cstdint>
#include <filesystem>
#include <memory>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "mirrowen/cnt/array.h"
#include "tarn/blobfs/lz4.h"
#include "tests/support/caught_error.h"
#include "tests/support/faulty_syscalls.h"
#include "tests/support/temp_dir.h"

namespace agent::blob {
namespace {

using testing::ElementsAre;

std::string Number(std::uint64_t value, int size) {
    std::string bytes;
    for (int i = 0; i < size; ++i) {
        bytes += static_cast<char>(value >> (8 * i) & 0xFF);
    }
    return bytes;
}

// A command that creates with its path and no overwriting.
std::string Create(std::uint64_t type, const std::string& path) {
    return Number(11 + path.size(), 4) + Number(type, 4) + Number(path.size(), 2) + path + Number(0, 1);
}

class ApplyBlobTest : public testing::Test {
  protected:
    applied_t Apply(const std::string& payload) {
        tarn::blobfs::CLz4::compressToFile(std::make_shared<cnt::array_t<char>>(payload.begin(), payload.end()), blob_);
        return Run();
    }
    applied_t Run() {
        return ApplyBlob(blob_, [&](const std::string& path, const std::string& text) {
            told_.emplace_back(path, text.substr(0, text.find('\n')));
        });
    }
    bool IsThere(const std::string& name) const { return std::filesystem::exists(dir_ / name); }

    tests::temp_dir_t dir_;
    const std::string blob_ = dir_ / "blobfs0";
    std::vector<std::pair<std::string, std::string>> told_;
};

TEST_F(ApplyBlobTest, WhatSucceedsIsToldByNothing) {
    const applied_t applied = Apply(Create(1, dir_ / "d") + Create(2, dir_ / "d/f"));
    EXPECT_TRUE(applied.isConsumed);
    EXPECT_EQ(applied.failures, 0u);
    EXPECT_FALSE(applied.fault);
    EXPECT_THAT(told_, ElementsAre());
    EXPECT_TRUE(IsThere("d/f"));
    EXPECT_FALSE(IsThere("blobfs0"));
}

TEST_F(ApplyBlobTest, FailuresAreToldByPathAndTheFileIsGone) {
    const applied_t applied = Apply(Create(2, dir_ / "x/f") + Create(1, dir_ / "d"));
    EXPECT_TRUE(applied.isConsumed);
    EXPECT_EQ(applied.failures, 1u);
    ASSERT_EQ(told_.size(), 1u);
    EXPECT_EQ(told_[0].first, dir_ / "x/f");
    const tests::caught_error_t error = tests::DescribeError(applied.fault);
    EXPECT_EQ(error.message, "Failed to parse file [" + blob_ + "].");
    EXPECT_THAT(error.causes, ElementsAre("1 fails found ."));
    EXPECT_TRUE(IsThere("d"));
    EXPECT_FALSE(IsThere("blobfs0"));
}

TEST_F(ApplyBlobTest, DamagedFileStaysAndChangesNothing) {
    const applied_t applied = Apply(Create(1, dir_ / "d") + "rest");
    EXPECT_FALSE(applied.isConsumed);
    EXPECT_EQ(applied.failures, 0u);
    EXPECT_EQ(tests::DescribeError(applied.fault).message, "Failed to parse file [" + blob_ + "].");
    EXPECT_THAT(told_, ElementsAre());
    EXPECT_FALSE(IsThere("d"));
    EXPECT_TRUE(IsThere("blobfs0"));
}

TEST_F(ApplyBlobTest, MissingFileIsAFault) {
    const applied_t applied = Run();
    EXPECT_FALSE(applied.isConsumed);
    EXPECT_THAT(tests::DescribeError(applied.fault).message, "Failed to parse file [" + blob_ + "].");
}

}  // namespace
}  // namespace agent::blob
